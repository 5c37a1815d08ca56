// Beating hearts over the eyes of every face and a rosy tint that grows with
// the smile. A blink restarts the effect, which makes the hearts jump.
float dot2(vec2 v)
{
    return dot(v, v);
}

// Signed distance to a heart of height about 1 whose tip is at the origin,
// pointing down (y grows upwards here).
float heart(vec2 p)
{
    p.x = abs(p.x);
    if (p.y + p.x > 1.0)
        return sqrt(dot2(p - vec2(0.25, 0.75))) - sqrt(2.0) / 4.0;
    return sqrt(min(dot2(p - vec2(0.0, 1.0)), dot2(p - 0.5 * max(p.x + p.y, 0.0)))) * sign(p.x - p.y);
}

// Draws one heart centred on an eye, turned with the head.
vec3 drawHeart(vec3 c, vec2 px, vec2 eye, float size, float roll)
{
    vec2 d = px - eye;
    vec2 q = mat2(cos(roll), -sin(roll), sin(roll), cos(roll)) * d / size;
    q = vec2(q.x, -q.y) + vec2(0.0, 0.55);
    vec3 colour = vec3(0.95, 0.1, 0.3) * (0.75 + 0.25 * q.y);
    colour = mix(colour, vec3(1.0), smoothstep(0.08, 0.0, length(q - vec2(-0.22, 0.72))));
    return mix(c, colour, smoothstep(0.02, -0.02, heart(q)));
}

void main()
{
    vec3 c = texelFetch(u_input, ivec2(gl_FragCoord.xy), 0).rgb;
    vec2 px = v_uv * u_resolution;
    float beat = 1.0 + 0.08 * sin(u_time * 9.0) + 0.5 * exp(-u_effectTime * 5.0);
    for (int i = 0; i < u_faceCount; ++i) {
        c = mix(c, c * vec3(1.1, 0.9, 0.95) + vec3(0.06, 0.0, 0.02), u_expressions[i].z);
        vec2 left = u_leftEye[i] * u_resolution;
        vec2 right = u_rightEye[i] * u_resolution;
        float size = distance(left, right) * 0.6 * beat;
        // Loops rather than ifs: a software renderer skips a loop that no
        // pixel of a block enters, but runs both sides of an if.
        for (int once = 0; once < 1 && distance(px, left) < size * 1.3; ++once)
            c = drawHeart(c, px, left, size, u_faceRoll[i]);
        for (int once = 0; once < 1 && distance(px, right) < size * 1.3; ++once)
            c = drawHeart(c, px, right, size, u_faceRoll[i]);
    }
    fragColor = vec4(c, 1.0);
}

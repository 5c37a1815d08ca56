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

void main()
{
    vec3 c = texelFetch(u_input, ivec2(gl_FragCoord.xy), 0).rgb;
    vec2 px = v_uv * u_resolution;
    float beat = 1.0 + 0.08 * sin(u_time * 9.0) + 0.5 * exp(-u_effectTime * 5.0);
    for (int i = 0; i < 4; ++i) {
        if (i >= u_faceCount)
            break;
        c = mix(c, c * vec3(1.1, 0.9, 0.95) + vec3(0.06, 0.0, 0.02), u_expressions[i].z);
        vec2 eyes[2] = vec2[2](u_leftEye[i] * u_resolution, u_rightEye[i] * u_resolution);
        float size = distance(eyes[0], eyes[1]) * 0.6 * beat;
        float roll = u_faceRoll[i];
        mat2 unroll = mat2(cos(roll), -sin(roll), sin(roll), cos(roll));
        for (int e = 0; e < 2; ++e) {
            if (distance(px, eyes[e]) > size * 1.3)
                continue;
            vec2 q = unroll * (px - eyes[e]) / size;
            q = vec2(q.x, -q.y) + vec2(0.0, 0.55);
            float d = heart(q);
            float shade = 0.75 + 0.25 * q.y;
            vec3 colour = vec3(0.95, 0.1, 0.3) * shade;
            colour = mix(colour, vec3(1.0), smoothstep(0.08, 0.0, length(q - vec2(-0.22, 0.72))));
            c = mix(c, colour, smoothstep(0.02, -0.02, d));
        }
    }
    fragColor = vec4(c, 1.0);
}

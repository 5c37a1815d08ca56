// Beating hearts over the eyes of every face and a rosy glow that grows with
// the smile. A blink restarts the effect, which makes the hearts jump.
// Drawn as an overlay at reduced size: a software renderer pays for every
// line of a shader on every pixel, so this runs on a quarter of them.
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

// Lays one heart centred on an eye, turned with the head, over `layer`
// (straight alpha).
vec4 drawHeart(vec4 layer, vec2 px, vec2 eye, float size, mat2 turn)
{
    vec2 q = turn * (px - eye) / size;
    q = vec2(q.x, -q.y) + vec2(0.0, 0.55);
    vec3 colour = vec3(0.95, 0.1, 0.3) * (0.75 + 0.25 * q.y);
    colour = mix(colour, vec3(1.0), smoothstep(0.08, 0.0, length(q - vec2(-0.22, 0.72))));
    float cover = smoothstep(0.02, -0.02, heart(q));
    float alpha = cover + layer.a * (1.0 - cover);
    vec3 rgb = (colour * cover + layer.rgb * layer.a * (1.0 - cover)) / max(alpha, 1e-4);
    return vec4(rgb, alpha);
}

void main()
{
    vec2 px = v_uv * u_resolution;
    float beat = 1.0 + 0.08 * sin(u_time * 9.0) + 0.5 * exp(-u_effectTime * 5.0);
    vec4 layer = vec4(1.0, 0.55, 0.7, 0.0);
    for (int i = 0; i < u_faceCount; ++i) {
        layer.a = max(layer.a, 0.12 * u_expressions[i].z);
        vec2 left = u_leftEye[i] * u_resolution;
        vec2 right = u_rightEye[i] * u_resolution;
        float size = distance(left, right) * 0.6 * beat;
        float roll = u_faceRoll[i];
        mat2 turn = mat2(cos(roll), -sin(roll), sin(roll), cos(roll));
        layer = drawHeart(layer, px, left, size, turn);
        layer = drawHeart(layer, px, right, size, turn);
    }
    fragColor = layer;
}

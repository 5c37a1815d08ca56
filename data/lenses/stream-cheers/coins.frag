// Gold coins falling for four seconds, for a donation: one coin at most per
// cell of a few layers, each turning about its vertical axis.
float hash(vec2 p)
{
    return fract(sin(dot(p, vec2(269.5, 183.3))) * 43758.5453);
}

void main()
{
    fragColor = vec4(0.0);
    float t = u_effectTime;
    float fade = 1.0 - smoothstep(3.2, 4.0, t);
    if (fade <= 0.0)
        return;
    vec2 p = v_uv * vec2(u_resolution.x / u_resolution.y, 1.0);
    for (int layer = 0; layer < 2; ++layer) {
        float fl = float(layer);
        float cellSize = 0.09 + fl * 0.03;
        vec2 q = vec2(p.x, p.y + 1.3 - t * (0.5 + fl * 0.25)) / cellSize;
        float h = hash(floor(q) + fl * 17.0);
        vec2 local = fract(q) - 0.5;
        float turn = abs(cos(t * (3.0 + h * 4.0) + h * 30.0)) * 0.8 + 0.2;
        vec2 d = vec2(local.x / turn, local.y);
        float r = length(d);
        bool inside = r < 0.3 && h < 0.45 && q.y >= 0.0 && q.y <= 1.3 / cellSize;
        if (inside) {
            float rim = smoothstep(0.2, 0.3, r);
            vec3 gold = mix(vec3(1.0, 0.84, 0.2), vec3(0.8, 0.55, 0.05), rim);
            fragColor = vec4(gold, fade);
        }
    }
}

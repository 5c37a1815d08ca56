// Confetti raining down for four seconds after the effect is (re)started,
// drawn as an overlay: transparent where there is no paper.
// The picture is cut into cells; each cell may hold one spinning paper
// strip, so the cost per pixel stays a few layers, not one per particle.
uniform float u_amount; // share of cells that hold a strip

float hash(vec2 p)
{
    return fract(sin(dot(p, vec2(127.1, 311.7))) * 43758.5453);
}

vec3 paper(float h)
{
    if (h < 0.2)
        return vec3(1.0, 0.30, 0.45);
    if (h < 0.4)
        return vec3(1.0, 0.82, 0.25);
    if (h < 0.6)
        return vec3(0.25, 0.78, 1.0);
    if (h < 0.8)
        return vec3(0.45, 0.95, 0.45);
    return vec3(0.80, 0.45, 1.0);
}

void main()
{
    fragColor = vec4(0.0);
    float t = u_effectTime;
    float fade = 1.0 - smoothstep(3.2, 4.0, t);
    if (fade <= 0.0)
        return;
    vec2 p = v_uv * vec2(u_resolution.x / u_resolution.y, 1.0);
    for (int layer = 0; layer < 3; ++layer) {
        float fl = float(layer);
        float cellSize = 0.05 + fl * 0.02;
        float speed = 0.45 + fl * 0.2;
        vec2 q = vec2(p.x + sin(t * 1.7 + fl + p.y * 6.0) * 0.02, p.y + 1.4 - t * speed);
        if (q.y < 0.0 || q.y > 1.4)
            continue;
        vec2 cell = floor(q / cellSize) + fl * 31.0;
        float h = hash(cell);
        // A loop rather than an if: a software renderer skips a loop that no
        // pixel of a block enters, but runs both sides of an if.
        for (int once = 0; once < 1 && h <= u_amount; ++once) {
            vec2 local = fract(q / cellSize) - 0.5 - (vec2(hash(cell + 1.3), hash(cell + 7.1)) - 0.5) * 0.4;
            float angle = t * (2.0 + h * 8.0) + h * 40.0;
            vec2 d = mat2(cos(angle), sin(angle), -sin(angle), cos(angle)) * local;
            vec2 size = vec2(0.26, 0.11) * vec2(abs(sin(t * 4.0 + h * 20.0)) * 0.7 + 0.3, 1.0);
            if (abs(d.x) < size.x && abs(d.y) < size.y)
                fragColor = vec4(paper(hash(cell + 3.3)), fade);
        }
    }
}

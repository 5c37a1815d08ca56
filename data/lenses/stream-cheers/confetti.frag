// Confetti raining down for four seconds after the effect is (re)started,
// drawn as an overlay: transparent where there is no paper.
// The picture is cut into cells; each cell may hold one spinning paper
// strip, so the cost per pixel stays a few layers, not one per particle.
// A software renderer runs every line for every pixel, so each layer draws
// all its random numbers from a single hash.
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
        vec2 q = vec2(p.x + sin(t * 1.7 + fl + p.y * 6.0) * 0.02, p.y + 1.4 - t * speed) / cellSize;
        float h = hash(floor(q) + fl * 31.0);
        // Further independent-looking values from the same hash.
        vec3 more = fract(h * vec3(97.31, 213.7, 531.9));
        vec2 local = fract(q) - 0.5 - (more.xy - 0.5) * 0.4;
        float angle = t * (2.0 + h * 8.0) + h * 40.0;
        float c = cos(angle), s = sin(angle);
        vec2 d = vec2(c * local.x - s * local.y, s * local.x + c * local.y);
        vec2 size = vec2(0.26, 0.11) * vec2(abs(sin(t * 4.0 + h * 20.0)) * 0.7 + 0.3, 1.0);
        bool inside = abs(d.x) < size.x && abs(d.y) < size.y && h <= u_amount && q.y >= 0.0 &&
                      q.y <= 1.4 / cellSize;
        if (inside)
            fragColor = vec4(paper(more.z), fade);
    }
}

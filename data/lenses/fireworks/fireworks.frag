// Four rockets bursting in turn over the top half of the picture, drawn as
// an overlay. Each burst is twenty sparks flying out along rays; the spark
// image comes from the host's asset bundle.
uniform sampler2D u_spark;

float hash(vec2 p)
{
    return fract(sin(dot(p, vec2(127.1, 311.7))) * 43758.5453);
}

vec3 burstColour(float h)
{
    if (h < 0.25)
        return vec3(1.0, 0.35, 0.3);
    if (h < 0.5)
        return vec3(1.0, 0.85, 0.35);
    if (h < 0.75)
        return vec3(0.4, 0.8, 1.0);
    return vec3(0.9, 0.5, 1.0);
}

void main()
{
    float aspect = u_resolution.x / u_resolution.y;
    vec2 p = v_uv * vec2(aspect, 1.0);
    const float period = 2.4;
    const float sector = 6.2831853 / 20.0;
    vec3 light = vec3(0.0);
    for (int b = 0; b < 4; ++b) {
        float tb = u_effectTime + float(b) * 0.6;
        float cycle = floor(tb / period);
        float lt = tb - cycle * period;
        vec2 centre = vec2((0.12 + 0.76 * hash(vec2(cycle, float(b)))) * aspect,
                           0.12 + 0.3 * hash(vec2(float(b), cycle + 3.0)));
        vec2 d = p - centre - vec2(0.0, lt * lt * 0.03);
        float radius = 0.3 * (1.0 - exp(-lt * 2.5));
        // Only points near the burst get light. (A software renderer still
        // runs this block for every pixel, which is why the overlay is small.)
        if (dot(d, d) < (radius + 0.04) * (radius + 0.04)) {
            float a = (floor(atan(d.y, d.x) / sector) + 0.5) * sector;
            vec2 ray = vec2(cos(a), sin(a));
            vec2 ds = d - ray * radius;
            float fade = 1.0 - smoothstep(0.6, period - 0.3, lt);
            vec2 suv = ds / 0.05 + 0.5;
            float image = all(greaterThan(suv, vec2(0.0))) && all(lessThan(suv, vec2(1.0))) ? texture(u_spark, suv).a : 0.0;
            float along = dot(d, ray);
            float across = abs(dot(d, vec2(-ray.y, ray.x)));
            float trail = along > 0.0 && along < radius ? smoothstep(0.008, 0.0, across) * (along / max(radius, 0.001)) : 0.0;
            light += burstColour(hash(vec2(cycle + 9.0, float(b)))) * (image * 1.5 + trail * 0.6) * fade;
        }
    }
    float alpha = clamp(max(light.r, max(light.g, light.b)), 0.0, 1.0);
    fragColor = vec4(alpha > 0.0 ? clamp(light / alpha, 0.0, 1.0) : vec3(0.0), alpha);
}

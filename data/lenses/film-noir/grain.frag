// Film grain that changes every frame, and a dark vignette.
uniform float u_amount;

// An integer hash: cheaper than the sine trick for a software renderer,
// and the same on every GPU.
float hash(uvec3 p)
{
    uint h = p.x * 1664525u + p.y * 22695477u + p.z * 2891336453u;
    h ^= h >> 15;
    h *= 2246822519u;
    h ^= h >> 13;
    return float(h & 0xffffu) / 65535.0;
}

void main()
{
    vec3 c = texelFetch(u_input, ivec2(gl_FragCoord.xy), 0).rgb;
    float grain = hash(uvec3(uvec2(gl_FragCoord.xy), uint(u_time * 24.0))) - 0.5;
    vec2 d = v_uv - 0.5;
    float vignette = 1.0 - dot(d, d) * 1.4;
    fragColor = vec4(clamp(c * vignette + grain * u_amount, 0.0, 1.0), 1.0);
}

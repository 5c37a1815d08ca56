// Film grain that changes every frame, and a dark vignette.
uniform float u_amount;

float hash(vec3 p)
{
    return fract(sin(dot(p, vec3(12.9898, 78.233, 37.719))) * 43758.5453);
}

void main()
{
    vec3 c = texelFetch(u_input, ivec2(gl_FragCoord.xy), 0).rgb;
    float grain = hash(vec3(floor(gl_FragCoord.xy), floor(u_time * 24.0))) - 0.5;
    vec2 d = v_uv - 0.5;
    float vignette = 1.0 - dot(d, d) * 1.4;
    fragColor = vec4(clamp(c * vignette + grain * u_amount, 0.0, 1.0), 1.0);
}

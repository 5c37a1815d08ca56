// Scan lines, the brighter rolling tracking band, noise and faded colours
// over the smeared picture.
uniform float u_noise;

float hash(vec2 p)
{
    return fract(sin(dot(p, vec2(12.9898, 78.233))) * 43758.5453);
}

void main()
{
    float band = fract(u_time * 0.15);
    float inBand = smoothstep(0.04, 0.0, abs(v_uv.y - band));
    vec3 c = texture(u_input, v_uv).rgb;
    float luma = dot(c, vec3(0.299, 0.587, 0.114));
    c = mix(vec3(luma), c, 0.75) * vec3(1.05, 0.98, 0.9) + vec3(0.03, 0.02, 0.05);
    c *= 0.88 + 0.12 * step(0.5, fract(gl_FragCoord.y * 0.5));
    c += (hash(gl_FragCoord.xy + floor(u_time * 30.0)) - 0.5) * u_noise;
    c += inBand * 0.08;
    vec2 edge = v_uv * (1.0 - v_uv);
    c *= smoothstep(0.0, 0.06, edge.x * edge.y * 4.0);
    fragColor = vec4(clamp(c, 0.0, 1.0), 1.0);
}

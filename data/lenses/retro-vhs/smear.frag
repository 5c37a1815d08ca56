// Half-resolution pass: smears colour sideways like worn tape, with the red
// and blue channels drifting apart, and shifts rows sideways in the rolling
// tracking band and, for a second after a tap, all over (the glitch).
// Each channel reads once, between two neighbouring texels, and the linear
// filter blends them. The shifts live here rather than in the full-size
// pass, where reading at computed positions costs much more.
void main()
{
    float band = fract(u_time * 0.15);
    float inBand = smoothstep(0.04, 0.0, abs(v_uv.y - band));
    float glitch = max(0.0, 1.0 - u_effectTime) * 0.03 * sin(v_uv.y * 90.0 + u_time * 40.0);
    vec2 uv = v_uv + vec2(inBand * 0.01 * sin(u_time * 30.0 + v_uv.y * 200.0) + glitch, 0.0);
    vec2 px = vec2(1.0 / u_resolution.x, 0.0);
    vec3 c;
    c.r = texture(u_input, uv - px * 2.5).r;
    c.g = texture(u_input, uv + px * 0.4).g;
    c.b = texture(u_input, uv + px * 2.5).b;
    fragColor = vec4(c, 1.0);
}

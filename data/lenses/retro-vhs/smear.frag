// Half-resolution pass: smears colour sideways like worn tape, with the red
// and blue channels drifting apart. Each channel reads once, between two
// neighbouring texels, and the linear filter blends them.
void main()
{
    vec2 px = vec2(1.0 / u_resolution.x, 0.0);
    vec3 c;
    c.r = texture(u_input, v_uv - px * 2.5).r;
    c.g = texture(u_input, v_uv + px * 0.4).g;
    c.b = texture(u_input, v_uv + px * 2.5).b;
    fragColor = vec4(c, 1.0);
}

// Half-resolution pass: smears colour sideways like worn tape, with the red
// and blue channels drifting apart.
void main()
{
    vec2 px = vec2(1.0 / u_resolution.x, 0.0);
    vec3 c = vec3(0.0);
    c.r = texture(u_input, v_uv - px * 2.0).r * 0.5 + texture(u_input, v_uv - px * 3.0).r * 0.5;
    c.g = texture(u_input, v_uv).g * 0.6 + texture(u_input, v_uv + px).g * 0.4;
    c.b = texture(u_input, v_uv + px * 2.0).b * 0.5 + texture(u_input, v_uv + px * 3.0).b * 0.5;
    fragColor = vec4(c, 1.0);
}

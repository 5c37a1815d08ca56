// Two-tone pop-art colours; every tap moves on to the next pair and sends a
// ring out from where the tap landed. palette.png holds the pairs: column i,
// dark tone in row 0 and light tone in row 1.
uniform sampler2D u_palette;

void main()
{
    int index = int(mod(u_tapCount, 5.0));
    vec3 dark = texelFetch(u_palette, ivec2(index, 0), 0).rgb;
    vec3 light = texelFetch(u_palette, ivec2(index, 1), 0).rgb;
    vec3 c = texelFetch(u_input, ivec2(gl_FragCoord.xy), 0).rgb;
    float luma = dot(c, vec3(0.299, 0.587, 0.114));
    vec3 tone = mix(dark, light, smoothstep(0.12, 0.85, luma));
    if (u_tapTime < 1.0 && u_tap.x >= 0.0) {
        vec2 aspect = vec2(u_resolution.x / u_resolution.y, 1.0);
        float d = distance(v_uv * aspect, u_tap * aspect);
        float ring = smoothstep(0.015, 0.0, abs(d - u_tapTime * 0.8)) * (1.0 - u_tapTime);
        tone = mix(tone, vec3(1.0), ring);
    }
    fragColor = vec4(tone, 1.0);
}

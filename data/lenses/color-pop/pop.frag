// Two-tone pop-art colours; every tap moves on to the next pair and sends a
// ring out from where the tap landed.
void palette(float index, out vec3 dark, out vec3 light)
{
    // The index is the same for every pixel, so these branches cost nothing.
    if (index < 0.5) {
        dark = vec3(0.10, 0.05, 0.35);
        light = vec3(1.0, 0.55, 0.75);
    } else if (index < 1.5) {
        dark = vec3(0.35, 0.0, 0.2);
        light = vec3(1.0, 0.9, 0.3);
    } else if (index < 2.5) {
        dark = vec3(0.0, 0.2, 0.25);
        light = vec3(0.4, 1.0, 0.8);
    } else if (index < 3.5) {
        dark = vec3(0.2, 0.1, 0.0);
        light = vec3(0.5, 0.8, 1.0);
    } else {
        dark = vec3(0.05, 0.05, 0.05);
        light = vec3(1.0, 0.45, 0.2);
    }
}

void main()
{
    vec3 dark, light;
    palette(mod(u_tapCount, 5.0), dark, light);
    vec3 c = texelFetch(u_input, ivec2(gl_FragCoord.xy), 0).rgb;
    float luma = dot(c, vec3(0.299, 0.587, 0.114));
    vec3 tone = mix(dark, light, smoothstep(0.12, 0.85, luma));
    if (u_tap.x >= 0.0 && u_tapTime < 1.0) {
        vec2 aspect = vec2(u_resolution.x / u_resolution.y, 1.0);
        float d = distance(v_uv * aspect, u_tap * aspect);
        float ring = smoothstep(0.015, 0.0, abs(d - u_tapTime * 0.8)) * (1.0 - u_tapTime);
        tone = mix(tone, vec3(1.0), ring);
    }
    fragColor = vec4(tone, 1.0);
}

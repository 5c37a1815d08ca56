// A warm, sunny colour tone with a soft glow towards the top of the picture.
uniform float u_warmth;

void main()
{
    vec3 c = texelFetch(u_input, ivec2(gl_FragCoord.xy), 0).rgb;
    c = mix(c, c * vec3(1.0 + u_warmth, 1.0 + u_warmth * 0.4, 1.0 - u_warmth), 1.0);
    float glow = smoothstep(0.6, 0.0, v_uv.y) * 0.08;
    c += vec3(glow, glow * 0.7, 0.0);
    fragColor = vec4(clamp(c, 0.0, 1.0), 1.0);
}

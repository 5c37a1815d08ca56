// The person stays in colour; the background turns into a dim, cool
// monochrome, and a thin glow traces the person's outline. u_segmentation is
// the person mask (1 person, 0 background) with a soft edge a few pixels
// wide: the glow is that edge, found from one read of the mask. A smile
// warms the glow.
uniform vec3 u_glow;
uniform vec3 u_smileGlow;
uniform float u_dim;

void main()
{
    vec3 c = texelFetch(u_input, ivec2(gl_FragCoord.xy), 0).rgb;
    float person = texture(u_segmentation, v_uv).r;
    float luma = dot(c, vec3(0.299, 0.587, 0.114));
    vec3 back = vec3(luma * u_dim) * vec3(0.72, 0.85, 1.0);
    float edge = 4.0 * person * (1.0 - person);
    float pulse = 0.75 + 0.25 * sin(u_time * 3.0);
    float smile = u_faceCount > 0 ? u_expressions[0].z : 0.0;
    vec3 glow = mix(u_glow, u_smileGlow, smile);
    vec3 result = mix(back, c, person);
    result = mix(result, glow, clamp(edge * pulse, 0.0, 1.0));
    fragColor = vec4(result, 1.0);
}

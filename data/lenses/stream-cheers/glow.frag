// A purple glow around the picture's edge that pulses three times and
// fades, for a new subscriber. Drawn small and blended over the picture.
void main()
{
    float t = u_effectTime;
    float fade = 1.0 - smoothstep(3.0, 4.0, t);
    vec2 edge = min(v_uv, 1.0 - v_uv);
    float distanceToEdge = min(edge.x * u_resolution.x / u_resolution.y, edge.y);
    float pulse = 0.65 + 0.35 * sin(t * 6.2832);
    float glow = (1.0 - smoothstep(0.0, 0.12 * pulse, distanceToEdge)) * fade;
    fragColor = vec4(0.62, 0.30, 1.0, glow * 0.85);
}

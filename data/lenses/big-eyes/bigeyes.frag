// Enlarges the eyes and slims the jaw of every face by moving where each
// output pixel samples the camera picture.
uniform float u_strength; // 0 = no change, 0.5 = eyes about twice as big
uniform float u_slim;     // how much the cheeks are pulled in

vec2 bulge(vec2 p, vec2 centre, float radius, float strength)
{
    vec2 d = p - centre;
    float t = length(d) / radius;
    if (t >= 1.0)
        return p;
    return centre + d * (1.0 - strength * (1.0 - t * t));
}

vec2 pinch(vec2 p, vec2 centre, float radius, float amount)
{
    vec2 d = p - centre;
    float t = length(d) / radius;
    if (t >= 1.0)
        return p;
    return p + d * amount * (1.0 - t) * t;
}

bool nearFace(vec4 rect)
{
    vec4 r = rect + vec4(-0.4, -0.4, 0.8, 0.8) * rect.zwzw;
    return v_uv.x > r.x && v_uv.y > r.y && v_uv.x < r.x + r.z && v_uv.y < r.y + r.w;
}

vec2 warpFace(vec2 p, vec4 rect, vec2 leftEye, vec2 rightEye)
{
    vec2 l = leftEye * u_resolution;
    vec2 r = rightEye * u_resolution;
    float eyes = distance(l, r);
    vec4 box = rect * vec4(u_resolution, u_resolution);
    vec2 jaw = vec2(box.x + box.z * 0.5, box.y + box.w * 0.75);
    p = pinch(p, jaw, box.z * 0.75, u_slim);
    p = bulge(p, l, eyes * 0.5, u_strength);
    return bulge(p, r, eyes * 0.5, u_strength);
}

void main()
{
    // The loop runs as many times as there are faces; a software renderer
    // evaluates both sides of branches, so per-face work must stay in it.
    vec2 p = v_uv * u_resolution;
    vec2 start = p;
    for (int i = 0; i < u_faceCount; ++i) {
        // A loop, not an if: a software renderer skips a loop that no pixel
        // of a block enters, while it runs both sides of an if.
        for (int once = 0; once < 1 && nearFace(u_faceRect[i]); ++once)
            p = warpFace(p, u_faceRect[i], u_leftEye[i], u_rightEye[i]);
    }
    // Most of the picture is far from any face: copy it straight through.
    fragColor = texelFetch(u_input, ivec2(gl_FragCoord.xy), 0);
    for (int once = 0; once < 1 && p != start; ++once)
        fragColor = texture(u_input, p / u_resolution);
}

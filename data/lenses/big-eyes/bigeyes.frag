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

void main()
{
    vec2 p = v_uv * u_resolution;
    for (int i = 0; i < 4; ++i) {
        if (i >= u_faceCount)
            break;
        // Most of the picture is far from any face: leave it alone quickly.
        vec4 near = u_faceRect[i] + vec4(-0.4, -0.4, 0.8, 0.8) * u_faceRect[i].zwzw;
        if (v_uv.x < near.x || v_uv.y < near.y || v_uv.x > near.x + near.z || v_uv.y > near.y + near.w)
            continue;
        vec2 l = u_leftEye[i] * u_resolution;
        vec2 r = u_rightEye[i] * u_resolution;
        float eyes = distance(l, r);
        vec4 box = u_faceRect[i] * vec4(u_resolution, u_resolution);
        vec2 jaw = vec2(box.x + box.z * 0.5, box.y + box.w * 0.75);
        p = pinch(p, jaw, box.z * 0.75, u_slim);
        p = bulge(p, l, eyes * 0.5, u_strength);
        p = bulge(p, r, eyes * 0.5, u_strength);
    }
    fragColor = texture(u_input, p / u_resolution);
}

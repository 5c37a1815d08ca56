// First of two passes, at a quarter of the frame size: works out for each
// point how far the eye enlargement and the jaw slimming move it, and stores
// that displacement as a colour. The warp is smooth, so this coarse field
// scaled up by the next pass is as good as computing it for every pixel,
// at a sixteenth of the cost.
//
// Displacements are in frame heights, x in red and y in green, mapped so
// that 128 means no displacement and one step is kRange / 127.
uniform float u_strength; // 0 = no change, 0.5 = eyes about twice as big
uniform float u_slim;     // how much the cheeks are pulled in

const float kRange = 0.1;

// Eyes: points inside the circle sample closer to its centre.
vec2 bulge(vec2 p, vec2 centre, float radius, float strength)
{
    vec2 d = p - centre;
    float t2 = min(dot(d, d) / (radius * radius), 1.0);
    return p - d * strength * (1.0 - t2);
}

// Jaw: points inside the circle sample further out, most at mid-radius.
vec2 pinch(vec2 p, vec2 centre, float radius, float amount)
{
    vec2 d = p - centre;
    float t = min(length(d) / radius, 1.0);
    return p + d * amount * (1.0 - t) * t;
}

void main()
{
    // Work in frame heights so that the circles stay round.
    vec2 aspect = vec2(u_resolution.x / u_resolution.y, 1.0);
    vec2 p = v_uv * aspect;
    vec2 start = p;
    for (int i = 0; i < u_faceCount; ++i) {
        vec2 l = u_leftEye[i] * aspect;
        vec2 r = u_rightEye[i] * aspect;
        float radius = max(distance(l, r) * 0.5, 1e-4);
        vec4 box = u_faceRect[i] * aspect.xyxy;
        vec2 jaw = vec2(box.x + box.z * 0.5, box.y + box.w * 0.75);
        p = pinch(p, jaw, max(box.z * 0.75, 1e-4), u_slim);
        p = bulge(p, l, radius, u_strength);
        p = bulge(p, r, radius, u_strength);
    }
    vec2 moved = clamp((p - start) / kRange, -1.0, 1.0);
    fragColor = vec4((128.0 + moved * 127.0) / 255.0, 0.5, 1.0);
}

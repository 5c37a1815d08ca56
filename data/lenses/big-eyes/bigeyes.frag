// Second pass, full size: reads the displacement field of the first pass
// (the picture so far) and samples the camera picture where it points.
const float kRange = 0.1; // as in warpfield.frag

void main()
{
    vec2 moved = (texture(u_input, v_uv).rg * 255.0 - 128.0) / 127.0 * kRange;
    moved.x *= u_resolution.y / u_resolution.x;
    fragColor = texture(u_camera, v_uv + moved);
}

#include "shaderlibrary.h"

namespace Orb {

namespace {
// readInput() for the engine's own passes. A software renderer runs both
// sides of every branch, so whether the input has the target's size is
// decided when compiling: programs built with DIRECT_READ defined (see
// ShaderLibrary::directRead) read texels 1:1, the others filter.
std::string inputRead()
{
    return R"(#ifdef DIRECT_READ
vec4 readInput() { return texelFetch(u_input, ivec2(gl_FragCoord.xy), 0); }
#else
vec4 readInput() { return texture(u_input, v_uv); }
#endif
)";
}
} // namespace

std::string ShaderLibrary::directRead(const std::string &source)
{
    const size_t firstLine = source.find('\n') + 1;
    return source.substr(0, firstLine) + "#define DIRECT_READ 1\n" + source.substr(firstLine);
}

const std::string &ShaderLibrary::fullScreenVertex()
{
    // One triangle covering the target. v_uv (0,0) is the top-left pixel:
    // row 0 of every texture and framebuffer holds the top of the picture.
    static const std::string source = R"(#version 300 es
out vec2 v_uv;
void main() {
    vec2 p = vec2(float((gl_VertexID << 1) & 2), float(gl_VertexID & 2));
    v_uv = p;
    gl_Position = vec4(p * 2.0 - 1.0, 0.0, 1.0);
}
)";
    return source;
}

const std::string &ShaderLibrary::stickerVertex()
{
    static const std::string source = R"(#version 300 es
uniform vec2 u_center;     // pixels
uniform vec2 u_halfSize;   // pixels
uniform float u_angle;     // radians, clockwise on screen
uniform vec2 u_resolution;
out vec2 v_uv;
void main() {
    vec2 corner = vec2(float(gl_VertexID & 1), float((gl_VertexID >> 1) & 1)) * 2.0 - 1.0;
    float c = cos(u_angle), s = sin(u_angle);
    vec2 local = corner * u_halfSize;
    vec2 p = u_center + vec2(c * local.x - s * local.y, s * local.x + c * local.y);
    v_uv = corner * 0.5 + 0.5;
    gl_Position = vec4(p / u_resolution * 2.0 - 1.0, 0.0, 1.0);
}
)";
    return source;
}

const std::string &ShaderLibrary::lensPrelude()
{
    static const std::string source = R"(#version 300 es
precision highp float;
precision highp int;
uniform sampler2D u_input;
uniform sampler2D u_camera;
uniform vec2 u_resolution;
uniform float u_time;
uniform float u_effectTime;
uniform vec2 u_tap;
uniform float u_tapCount;
uniform float u_tapTime;
uniform vec2 u_touch;
uniform float u_touchDown;
uniform int u_faceCount;
uniform vec4 u_faceRect[4];
uniform vec2 u_leftEye[4];
uniform vec2 u_rightEye[4];
uniform vec2 u_nose[4];
uniform vec2 u_mouth[4];
uniform float u_faceRoll[4];
uniform vec4 u_expressions[4];
uniform vec2 u_landmarks[68];
uniform sampler2D u_segmentation;
in vec2 v_uv;
out vec4 fragColor;
)";
    return source;
}

std::string ShaderLibrary::lensFragment(const std::string &authorSource)
{
    return lensPrelude() + "#line 1\n" + authorSource;
}

const std::string &ShaderLibrary::copyFragment()
{
    static const std::string source = R"(#version 300 es
precision mediump float;
uniform sampler2D u_input;
in vec2 v_uv;
out vec4 fragColor;
)" + inputRead() + R"(
void main() {
    fragColor = readInput();
}
)";
    return source;
}

const std::string &ShaderLibrary::stickerFragment()
{
    static const std::string source = R"(#version 300 es
precision mediump float;
uniform sampler2D u_image;
uniform float u_opacity;
in vec2 v_uv;
out vec4 fragColor;
void main() {
    vec4 c = texture(u_image, v_uv);
    fragColor = vec4(c.rgb, c.a * u_opacity);
}
)";
    return source;
}

const std::string &ShaderLibrary::lutFragment()
{
    // A Hald colour look-up image: cube side N, entry r + g*N + b*N*N laid
    // out row by row. Blue is interpolated between two slices.
    static const std::string source = R"(#version 300 es
precision highp float;
precision highp int;
uniform sampler2D u_input;
uniform sampler2D u_lut;
uniform int u_lutSide;
uniform float u_intensity;
in vec2 v_uv;
out vec4 fragColor;
)" + inputRead() + R"(
vec3 entry(int r, int g, int b) {
    // Row and column in float arithmetic: integer division has no vector
    // instruction and would run pixel by pixel in software. Exact for
    // tables below 2^24 entries.
    float width = float(textureSize(u_lut, 0).x);
    float index = float(r + g * u_lutSide + b * u_lutSide * u_lutSide);
    float row = floor((index + 0.5) / width);
    return texelFetch(u_lut, ivec2(int(index - row * width), int(row)), 0).rgb;
}
void main() {
    vec4 c = readInput();
    vec3 s = clamp(c.rgb, 0.0, 1.0) * float(u_lutSide - 1);
    int r = int(s.r + 0.5), g = int(s.g + 0.5);
    int b0 = int(floor(s.b));
    int b1 = min(b0 + 1, u_lutSide - 1);
    vec3 graded = mix(entry(r, g, b0), entry(r, g, b1), s.b - float(b0));
    fragColor = vec4(mix(c.rgb, graded, u_intensity), c.a);
}
)";
    return source;
}

const std::string &ShaderLibrary::compositeFragment()
{
    // Lays an overlay (straight alpha) over the picture in one pass.
    static const std::string source = R"(#version 300 es
precision mediump float;
uniform sampler2D u_input;
uniform sampler2D u_overlay;
in vec2 v_uv;
out vec4 fragColor;
)" + inputRead() + R"(
void main() {
    vec4 base = readInput();
    vec4 over = texture(u_overlay, v_uv);
    fragColor = vec4(mix(base.rgb, over.rgb, over.a), base.a);
}
)";
    return source;
}

} // namespace Orb

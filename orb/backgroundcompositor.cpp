#include "backgroundcompositor.h"

#include "shaderlibrary.h"

#include <GLES3/gl3.h>
#include <cmath>
#include <stdexcept>

namespace Orb {

namespace {

// The mask from the coefficients and the camera's luma (the same weights as
// the gray picture the coefficients were fitted to), with its soft edge
// narrowed a little.
const char *kMaskFunction = R"(
uniform sampler2D u_coefficients;
float personMask(vec3 rgb, vec2 uv) {
    vec2 ab = texture(u_coefficients, uv).rg;
    float m = clamp(ab.x * dot(rgb, vec3(0.299, 0.587, 0.114)) + ab.y, 0.0, 1.0);
    return smoothstep(0.15, 0.85, m);
}
)";

std::string fragment(const std::string &body)
{
    return std::string("#version 300 es\nprecision highp float;\nin vec2 v_uv;\nout vec4 fragColor;\n") +
           kMaskFunction + body;
}

const std::string kMaskSource = fragment(R"(
uniform sampler2D u_camera;
void main() {
    float m = personMask(texture(u_camera, v_uv).rgb, v_uv);
    fragColor = vec4(m, m, m, 1.0);
}
)");

// Averages a block of the camera picture with the person weighted out:
// rgb * (1 - mask) and the weight (1 - mask) in alpha.
const std::string kDownSource = fragment(R"(
uniform sampler2D u_camera;
uniform vec2 u_step; // a quarter of a target pixel, in camera uv
void main() {
    vec3 sum = vec3(0.0);
    float weight = 0.0;
    for (int i = 0; i < 4; ++i) {
        vec2 uv = v_uv + u_step * vec2(i == 0 || i == 2 ? -1.0 : 1.0, i < 2 ? -1.0 : 1.0);
        vec3 c = texture(u_camera, uv).rgb;
        float w = 1.0 - personMask(c, uv);
        sum += c * w;
        weight += w;
    }
    fragColor = vec4(sum, weight) * 0.25;
}
)");

const std::string kBlurSource = R"(#version 300 es
precision highp float;
uniform sampler2D u_input;
uniform ivec2 u_direction;
uniform float u_weights[5];
out vec4 fragColor;
void main() {
    ivec2 p = ivec2(gl_FragCoord.xy);
    ivec2 last = textureSize(u_input, 0) - 1;
    vec4 sum = texelFetch(u_input, p, 0) * u_weights[0];
    sum += (texelFetch(u_input, clamp(p + u_direction, ivec2(0), last), 0) +
            texelFetch(u_input, clamp(p - u_direction, ivec2(0), last), 0)) * u_weights[1];
    sum += (texelFetch(u_input, clamp(p + 2 * u_direction, ivec2(0), last), 0) +
            texelFetch(u_input, clamp(p - 2 * u_direction, ivec2(0), last), 0)) * u_weights[2];
    sum += (texelFetch(u_input, clamp(p + 3 * u_direction, ivec2(0), last), 0) +
            texelFetch(u_input, clamp(p - 3 * u_direction, ivec2(0), last), 0)) * u_weights[3];
    sum += (texelFetch(u_input, clamp(p + 4 * u_direction, ivec2(0), last), 0) +
            texelFetch(u_input, clamp(p - 4 * u_direction, ivec2(0), last), 0)) * u_weights[4];
    fragColor = sum;
}
)";

// The person over the background; with u_weighted the background is the
// blurred, person-weighted average and is divided by its weight.
const std::string kCompositeSource = fragment(R"(
uniform sampler2D u_camera;
uniform sampler2D u_background;
uniform float u_weighted;
void main() {
    vec4 camera = texelFetch(u_camera, ivec2(gl_FragCoord.xy), 0);
    vec4 back = texture(u_background, v_uv);
    vec3 blurred = back.a > 0.004 ? back.rgb / back.a : camera.rgb;
    vec3 background = mix(back.rgb, blurred, u_weighted);
    fragColor = vec4(mix(background, camera.rgb, personMask(camera.rgb, v_uv)), 1.0);
}
)");

void gaussian(float sigma, float weights[5])
{
    float sum = 0.0f;
    for (int i = 0; i < 5; ++i) {
        weights[i] = std::exp(-0.5f * i * i / (sigma * sigma));
        sum += i == 0 ? weights[i] : 2.0f * weights[i];
    }
    for (int i = 0; i < 5; ++i)
        weights[i] /= sum;
}

// Binds a texture to a unit and names the unit to the program's sampler.
void bindSampler(ShaderProgram &program, const char *sampler, int unit, GLuint texture)
{
    glActiveTexture(GL_TEXTURE0 + unit);
    glBindTexture(GL_TEXTURE_2D, texture);
    program.setInt(sampler, unit);
}

void ensure(RenderTarget &target, int width, int height)
{
    if (!target.ensure(std::max(1, width), std::max(1, height)))
        throw std::runtime_error("background render target is not complete");
}

} // namespace

BackgroundCompositor::~BackgroundCompositor()
{
    if (m_coefficients)
        glDeleteTextures(1, &m_coefficients);
    if (m_vao)
        glDeleteVertexArrays(1, &m_vao);
}

bool BackgroundCompositor::initialize(std::string &error)
{
    const std::string &vertex = ShaderLibrary::fullScreenVertex();
    std::string log;
    for (auto [program, source, name] :
         {std::tuple{&m_mask, &kMaskSource, "mask"}, std::tuple{&m_down, &kDownSource, "downsample"},
          std::tuple{&m_blur, &kBlurSource, "blur"},
          std::tuple{&m_composite, &kCompositeSource, "composite"}}) {
        if (!program->build(vertex, *source, log)) {
            error = std::string("background ") + name + " shader does not compile:\n" + log;
            return false;
        }
    }
    glGenVertexArrays(1, &m_vao);
    return true;
}

void BackgroundCompositor::setCoefficients(const cv::Mat &coefficients)
{
    CV_Assert(coefficients.type() == CV_32FC2 && coefficients.isContinuous());
    if (!m_coefficients)
        glGenTextures(1, &m_coefficients);
    glBindTexture(GL_TEXTURE_2D, m_coefficients);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RG16F, coefficients.cols, coefficients.rows, 0, GL_RG, GL_FLOAT,
                 coefficients.data);
}

void BackgroundCompositor::drawFullScreen()
{
    glBindVertexArray(m_vao);
    glDisable(GL_BLEND);
    glDrawArrays(GL_TRIANGLES, 0, 3);
}

Texture BackgroundCompositor::renderMask(const Texture &camera, Size size)
{
    ensure(m_maskTarget, size.width, size.height);
    m_maskTarget.bind();
    m_mask.use();
    bindSampler(m_mask, "u_coefficients", 1, m_coefficients);
    bindSampler(m_mask, "u_camera", 0, camera.id());
    drawFullScreen();
    return m_maskTarget.texture();
}

Texture BackgroundCompositor::blur(const Texture &camera, BackgroundEffect::BlurStrength strength)
{
    const bool strong = strength == BackgroundEffect::BlurStrength::Strong;
    const int factor = strong ? 8 : 4;
    const int width = (camera.width() + factor - 1) / factor,
              height = (camera.height() + factor - 1) / factor;
    ensure(m_small[0], width, height);
    ensure(m_small[1], width, height);

    m_small[0].bind();
    m_down.use();
    bindSampler(m_down, "u_coefficients", 1, m_coefficients);
    bindSampler(m_down, "u_camera", 0, camera.id());
    m_down.setVec2("u_step", 0.25f / width, 0.25f / height);
    drawFullScreen();

    float weights[5];
    gaussian(strong ? 3.0f : 2.0f, weights);
    m_blur.use();
    m_blur.setFloats("u_weights[0]", weights, 1, 5);
    m_blur.setInt("u_input", 0);
    const int passes = strong ? 2 : 1;
    for (int i = 0; i < passes; ++i) {
        for (int axis = 0; axis < 2; ++axis) {
            const int from = axis, to = 1 - axis;
            m_small[to].bind();
            glBindTexture(GL_TEXTURE_2D, m_small[from].texture().id());
            glUniform2i(m_blur.location("u_direction"), axis == 0 ? 1 : 0, axis == 0 ? 0 : 1);
            drawFullScreen();
        }
    }
    return composite(camera, m_small[0].texture(), true);
}

Texture BackgroundCompositor::replace(const Texture &camera, const Texture &background)
{
    return composite(camera, background, false);
}

Texture BackgroundCompositor::composite(const Texture &camera, const Texture &background, bool weighted)
{
    ensure(m_output, camera.width(), camera.height());
    m_output.bind();
    m_composite.use();
    bindSampler(m_composite, "u_coefficients", 2, m_coefficients);
    bindSampler(m_composite, "u_background", 1, background.id());
    bindSampler(m_composite, "u_camera", 0, camera.id());
    m_composite.setFloat("u_weighted", weighted ? 1.0f : 0.0f);
    drawFullScreen();
    return m_output.texture();
}

} // namespace Orb

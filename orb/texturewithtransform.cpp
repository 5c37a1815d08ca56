#include "texturewithtransform.h"

#include "rendertarget.h"
#include "shaderlibrary.h"
#include "shaderprogram.h"

#include <GLES3/gl3.h>
#include <stdexcept>

namespace Orb {

namespace {
const char *kTransformFragment = R"(#version 300 es
precision mediump float;
uniform sampler2D u_input;
uniform vec4 u_rect;
uniform vec2 u_flip;
in vec2 v_uv;
out vec4 fragColor;
void main() {
    vec2 uv = mix(v_uv, 1.0 - v_uv, u_flip);
    fragColor = texture(u_input, u_rect.xy + uv * u_rect.zw);
}
)";
} // namespace

Texture TextureWithTransform::buildNormalizedTexture() const
{
    if (m_transform.isIdentity() || !m_texture.isValid())
        return m_texture;
    // Kept per thread: each processing thread has its own GL context.
    thread_local ShaderProgram program;
    if (!program.isValid()) {
        std::string log;
        if (!program.build(ShaderLibrary::fullScreenVertex(), kTransformFragment, log))
            throw std::runtime_error("transform shader does not compile: " + log);
    }
    const int width = std::max(1, static_cast<int>(m_texture.width() * m_transform.width));
    const int height = std::max(1, static_cast<int>(m_texture.height() * m_transform.height));
    RenderTarget target;
    if (!target.ensure(width, height))
        throw std::runtime_error("transform target is not complete");
    target.bind();
    program.use();
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, m_texture.id());
    program.setInt("u_input", 0);
    program.setVec4("u_rect", m_transform.x, m_transform.y, m_transform.width, m_transform.height);
    program.setVec2("u_flip", m_transform.flipHorizontally ? 1.0f : 0.0f,
                    m_transform.flipVertically ? 1.0f : 0.0f);
    glDrawArrays(GL_TRIANGLES, 0, 3);
    return target.texture();
}

} // namespace Orb

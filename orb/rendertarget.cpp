#include "rendertarget.h"

#include <GLES3/gl3.h>

namespace Orb {

RenderTarget::~RenderTarget()
{
    if (m_framebuffer)
        glDeleteFramebuffers(1, &m_framebuffer);
}

bool RenderTarget::ensure(int width, int height)
{
    if (m_framebuffer && m_texture.width() == width && m_texture.height() == height)
        return true;
    if (!m_framebuffer)
        glGenFramebuffers(1, &m_framebuffer);
    m_texture = Texture::create(width, height);
    glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, m_texture.id(), 0);
    return glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
}

void RenderTarget::bind() const
{
    glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    glViewport(0, 0, m_texture.width(), m_texture.height());
}

} // namespace Orb

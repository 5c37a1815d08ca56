#include "rendertarget.h"

#include <GLES3/gl3.h>

namespace Orb {

RenderTarget::~RenderTarget()
{
    if (m_framebuffer)
        glDeleteFramebuffers(1, &m_framebuffer);
    if (m_readFramebuffer)
        glDeleteFramebuffers(1, &m_readFramebuffer);
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

void RenderTarget::copyFrom(const Texture &source)
{
    if (!m_readFramebuffer)
        glGenFramebuffers(1, &m_readFramebuffer);
    bind();
    glBindFramebuffer(GL_READ_FRAMEBUFFER, m_readFramebuffer);
    glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, source.id(), 0);
    const int w = m_texture.width(), h = m_texture.height();
    glBlitFramebuffer(0, 0, w, h, 0, 0, w, h, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    // The source stays attached to nothing: it may be deleted or drawn into.
    glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, 0, 0);
    bind();
}

} // namespace Orb

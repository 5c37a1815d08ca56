#include "texturereader.h"

#include "texture.h"

#include <GLES3/gl3.h>
#include <stdexcept>

namespace Orb {

TextureReader::TextureReader() = default;

TextureReader::~TextureReader()
{
    if (m_framebuffer)
        glDeleteFramebuffers(1, &m_framebuffer);
}

std::shared_ptr<ImageBase> TextureReader::readTextureToImage(const Texture &texture)
{
    if (!texture.isValid())
        throw std::runtime_error("no texture to read");
    if (!m_framebuffer)
        glGenFramebuffers(1, &m_framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture.id(), 0);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
        throw std::runtime_error("texture cannot be attached for reading");
    const bool reusable = m_last && m_last.use_count() == 1 && m_last->getSize() == texture.size();
    if (!reusable)
        m_last = std::make_shared<ImageBase>(texture.width(), texture.height(), ColorSpace::RGBA);
    const std::shared_ptr<ImageBase> &image = m_last;
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, texture.width(), texture.height(), GL_RGBA, GL_UNSIGNED_BYTE, image->data());
    const GLenum status = glGetError();
    if (status != GL_NO_ERROR)
        throw std::runtime_error("reading the texture failed with OpenGL error " + std::to_string(status));
    return image;
}

} // namespace Orb

#include "shaderprogram.h"

#include <GLES3/gl3.h>
#include <vector>

namespace Orb {

namespace {
GLuint compile(GLenum kind, const std::string &source, std::string &log)
{
    GLuint shader = glCreateShader(kind);
    const char *text = source.c_str();
    glShaderSource(shader, 1, &text, nullptr);
    glCompileShader(shader);
    GLint ok = GL_FALSE;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
    if (ok)
        return shader;
    GLint length = 0;
    glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &length);
    std::vector<char> buffer(static_cast<size_t>(length) + 1, '\0');
    glGetShaderInfoLog(shader, length, nullptr, buffer.data());
    log = buffer.data();
    glDeleteShader(shader);
    return 0;
}
} // namespace

ShaderProgram::~ShaderProgram()
{
    if (m_program)
        glDeleteProgram(m_program);
}

bool ShaderProgram::build(const std::string &vertexSource, const std::string &fragmentSource,
                          std::string &log)
{
    GLuint vs = compile(GL_VERTEX_SHADER, vertexSource, log);
    if (!vs)
        return false;
    GLuint fs = compile(GL_FRAGMENT_SHADER, fragmentSource, log);
    if (!fs) {
        glDeleteShader(vs);
        return false;
    }
    GLuint program = glCreateProgram();
    glAttachShader(program, vs);
    glAttachShader(program, fs);
    glLinkProgram(program);
    glDeleteShader(vs);
    glDeleteShader(fs);
    GLint ok = GL_FALSE;
    glGetProgramiv(program, GL_LINK_STATUS, &ok);
    if (!ok) {
        GLint length = 0;
        glGetProgramiv(program, GL_INFO_LOG_LENGTH, &length);
        std::vector<char> buffer(static_cast<size_t>(length) + 1, '\0');
        glGetProgramInfoLog(program, length, nullptr, buffer.data());
        log = buffer.data();
        glDeleteProgram(program);
        return false;
    }
    m_program = program;
    return true;
}

void ShaderProgram::use() const
{
    glUseProgram(m_program);
}

int ShaderProgram::location(const std::string &name)
{
    auto it = m_locations.find(name);
    if (it != m_locations.end())
        return it->second;
    int loc = glGetUniformLocation(m_program, name.c_str());
    m_locations.emplace(name, loc);
    return loc;
}

void ShaderProgram::setInt(const std::string &name, int value)
{
    int loc = location(name);
    if (loc >= 0)
        glUniform1i(loc, value);
}

void ShaderProgram::setFloat(const std::string &name, float value)
{
    int loc = location(name);
    if (loc >= 0)
        glUniform1f(loc, value);
}

void ShaderProgram::setVec2(const std::string &name, float x, float y)
{
    int loc = location(name);
    if (loc >= 0)
        glUniform2f(loc, x, y);
}

void ShaderProgram::setVec4(const std::string &name, float x, float y, float z, float w)
{
    int loc = location(name);
    if (loc >= 0)
        glUniform4f(loc, x, y, z, w);
}

void ShaderProgram::setFloats(const std::string &name, const float *values, int components, int count)
{
    int loc = location(name);
    if (loc < 0)
        return;
    switch (components) {
    case 1:
        glUniform1fv(loc, count, values);
        break;
    case 2:
        glUniform2fv(loc, count, values);
        break;
    case 3:
        glUniform3fv(loc, count, values);
        break;
    case 4:
        glUniform4fv(loc, count, values);
        break;
    }
}

} // namespace Orb

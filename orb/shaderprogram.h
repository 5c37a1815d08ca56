#pragma once

#include <string>
#include <unordered_map>

namespace Orb {

// A linked GLSL ES 3.00 program with cached uniform locations.
class ShaderProgram
{
public:
    ShaderProgram() = default;
    ~ShaderProgram();

    ShaderProgram(const ShaderProgram &) = delete;
    ShaderProgram &operator=(const ShaderProgram &) = delete;

    // Compiles and links; on failure returns false with the driver's log.
    bool build(const std::string &vertexSource, const std::string &fragmentSource, std::string &log);
    void use() const;
    bool isValid() const { return m_program != 0; }

    // -1 when the program has no such active uniform.
    int location(const std::string &name);
    void setInt(const std::string &name, int value);
    void setFloat(const std::string &name, float value);
    void setVec2(const std::string &name, float x, float y);
    void setVec4(const std::string &name, float x, float y, float z, float w);
    void setFloats(const std::string &name, const float *values, int components, int count = 1);

private:
    unsigned m_program = 0;
    std::unordered_map<std::string, int> m_locations;
};

} // namespace Orb

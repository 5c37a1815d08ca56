#include "jsonobjectsplitter.h"

namespace VCam {

JsonObjectSplitter::Status JsonObjectSplitter::feed(const char *data, qsizetype size,
                                                    QList<QByteArray> &objects)
{
    qsizetype begin = m_depth > 0 ? 0 : -1; // start of the current object in this chunk
    for (qsizetype i = 0; i < size; ++i) {
        const char c = data[i];
        if (m_depth == 0) {
            if (c == '{') {
                m_depth = 1;
                begin = i;
            } else if (c != ' ' && c != '\n' && c != '\r' && c != '\t') {
                ++m_skipped;
            }
            continue;
        }
        if (m_inString) {
            if (m_escaped)
                m_escaped = false;
            else if (c == '\\')
                m_escaped = true;
            else if (c == '"')
                m_inString = false;
            continue;
        }
        if (c == '"') {
            m_inString = true;
        } else if (c == '{') {
            ++m_depth;
        } else if (c == '}' && --m_depth == 0) {
            const qsizetype length = i + 1 - begin;
            if (m_current.size() + length > m_maxObjectBytes) {
                m_current.clear();
                m_depth = 0;
                m_inString = m_escaped = false;
                return Status::ObjectTooLarge;
            }
            m_current.append(data + begin, length);
            objects.append(m_current);
            m_current.clear();
            begin = -1;
        }
    }
    if (m_depth > 0 && begin >= 0) {
        const qsizetype length = size - begin;
        if (m_current.size() + length > m_maxObjectBytes) {
            m_current.clear();
            m_depth = 0;
            m_inString = m_escaped = false;
            return Status::ObjectTooLarge;
        }
        m_current.append(data + begin, length);
    }
    return Status::Ok;
}

} // namespace VCam

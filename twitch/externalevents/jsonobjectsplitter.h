#pragma once

#include <QByteArray>
#include <QList>

namespace VCam {

// Cuts a byte stream into top-level JSON objects as TCP delivers it: one
// object per chunk, several in one chunk, or one spread over many chunks.
// It tracks braces outside strings only; whether an object is valid JSON is
// for the caller to decide. Bytes between objects that cannot start one are
// skipped and counted.
class JsonObjectSplitter
{
public:
    explicit JsonObjectSplitter(int maxObjectBytes) : m_maxObjectBytes(maxObjectBytes) {}

    enum class Status { Ok, ObjectTooLarge };

    // Appends received bytes and moves every object completed by them to
    // `objects`. ObjectTooLarge: an object grew beyond the limit; the
    // splitter then holds nothing more and the stream should be dropped.
    Status feed(const char *data, qsizetype size, QList<QByteArray> &objects);

    // Bytes of an object begun but not yet closed.
    qsizetype pendingBytes() const { return m_current.size(); }
    qsizetype skippedBytes() const { return m_skipped; }

private:
    const int m_maxObjectBytes;
    QByteArray m_current;
    int m_depth = 0;
    bool m_inString = false;
    bool m_escaped = false;
    qsizetype m_skipped = 0;
};

} // namespace VCam

#include "facility/JsonMember.h"

#include <cstring>

namespace spinlane::facility {

namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

class Scanner {
public:
    explicit Scanner(QByteArrayView text)
        : m_text(text)
    {
    }
    qsizetype at() const { return m_at; }
    bool done() const { return m_at >= m_text.size(); }
    char peek() const { return done() ? '\0' : m_text[m_at]; }
    void skipSpace()
    {
        while (!done() && isSpace(m_text[m_at]))
            ++m_at;
    }
    bool take(char c)
    {
        skipSpace();
        if (peek() != c)
            return false;
        ++m_at;
        return true;
    }
    // Past a string whose opening quote is at the cursor; false when it never ends.
    // `escaped` tells whether it held a backslash.
    bool skipString(bool* escaped = nullptr)
    {
        ++m_at;
        const char* data = m_text.data();
        while (!done()) {
            const char* stop = static_cast<const char*>(
                std::memchr(data + m_at, '"', size_t(m_text.size() - m_at)));
            if (!stop)
                return false;
            const char* slash = static_cast<const char*>(
                std::memchr(data + m_at, '\\', size_t(stop - (data + m_at))));
            if (!slash) {
                m_at = stop - data + 1;
                return true;
            }
            if (escaped)
                *escaped = true;
            m_at = slash - data + 2;
        }
        return false;
    }
    // Past one value of any kind, following strings and brackets only.
    bool skipValue()
    {
        skipSpace();
        qsizetype depth = 0;
        while (!done()) {
            const char c = m_text[m_at];
            if (c == '"') {
                if (!skipString())
                    return false;
                if (depth == 0)
                    return true;
                continue;
            }
            if (c == '[' || c == '{') {
                ++depth;
            } else if (c == ']' || c == '}') {
                if (depth == 0)
                    return true; // the end of what holds a scalar
                if (--depth == 0) {
                    ++m_at;
                    return true;
                }
            } else if (depth == 0 && (c == ',' || isSpace(c))) {
                return true;
            }
            ++m_at;
        }
        return depth == 0;
    }

private:
    QByteArrayView m_text;
    qsizetype m_at = 0;
};

} // namespace

MemberSpan memberSpan(QByteArrayView json, QByteArrayView key)
{
    Scanner scan(json);
    MemberSpan span;
    if (!scan.take('{'))
        return {};
    if (scan.take('}'))
        return {};
    do {
        scan.skipSpace();
        if (scan.peek() != '"')
            return {};
        const qsizetype keyBegin = scan.at() + 1;
        bool escaped = false;
        if (!scan.skipString(&escaped) || escaped)
            return {};
        const QByteArrayView name = json.sliced(keyBegin, scan.at() - 1 - keyBegin);
        if (!scan.take(':'))
            return {};
        scan.skipSpace();
        const qsizetype begin = scan.at();
        const char first = scan.peek();
        if (!scan.skipValue())
            return {};
        if (name == key) {
            if (span.found() || (first != '[' && first != '{'))
                return {};
            span = {begin, scan.at()};
        }
    } while (scan.take(','));
    if (!scan.take('}'))
        return {};
    scan.skipSpace();
    return scan.done() ? span : MemberSpan{};
}

} // namespace spinlane::facility

#include "widgets/layout/LayoutJsonReader.h"

#include <cmath>

namespace {
bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

void appendUtf8(QByteArray *out, uint code)
{
    if (code < 0x80) {
        out->append(char(code));
    } else if (code < 0x800) {
        out->append(char(0xC0 | (code >> 6)));
        out->append(char(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
        out->append(char(0xE0 | (code >> 12)));
        out->append(char(0x80 | ((code >> 6) & 0x3F)));
        out->append(char(0x80 | (code & 0x3F)));
    } else {
        out->append(char(0xF0 | (code >> 18)));
        out->append(char(0x80 | ((code >> 12) & 0x3F)));
        out->append(char(0x80 | ((code >> 6) & 0x3F)));
        out->append(char(0x80 | (code & 0x3F)));
    }
}
} // namespace

bool LayoutJsonReader::parse(const QByteArray &text, LayoutJsonValue *value)
{
    m_error.clear();
    if (text.size() > m_maxBytes)
        return failAt(0, tr("the document has %1 bytes, more than the %2 a layout may have")
                             .arg(text.size())
                             .arg(m_maxBytes));
    m_data = text.constData();
    m_size = text.size();
    m_pos = text.startsWith("\xEF\xBB\xBF") ? 3 : 0;
    m_values = 0;
    m_out = std::make_shared<QByteArray>();
    m_out->reserve(text.size());

    LayoutJsonValue result;
    skipSpace();
    if (m_pos >= m_size)
        return fail(tr("the document is empty"));
    if (!parseValue(&result, 0))
        return false;
    skipSpace();
    if (m_pos < m_size)
        return fail(tr("unexpected text after the end of the document"));
    *value = std::move(result);
    m_out.reset();
    return true;
}

bool LayoutJsonReader::fail(const QString &reason)
{
    return failAt(m_pos, reason);
}

bool LayoutJsonReader::failAt(int offset, const QString &reason)
{
    m_error = tr("Malformed JSON at byte %1: %2").arg(offset).arg(reason);
    m_out.reset();
    return false;
}

void LayoutJsonReader::skipSpace()
{
    while (m_pos < m_size) {
        const char c = m_data[m_pos];
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
            return;
        ++m_pos;
    }
}

void LayoutJsonReader::startValue(LayoutJsonValue *value, LayoutJsonValue::Kind kind)
{
    value->m_kind = kind;
    value->m_text = m_out;
    value->m_begin = m_out->size();
}

void LayoutJsonReader::endValue(LayoutJsonValue *value)
{
    value->m_end = m_out->size();
}

bool LayoutJsonReader::parseValue(LayoutJsonValue *value, int depth)
{
    if (++m_values > m_maxValues)
        return fail(tr("more than %1 values").arg(m_maxValues));
    skipSpace();
    if (m_pos >= m_size)
        return fail(tr("the document ends too early"));
    const char c = m_data[m_pos];
    if (c == '{' || c == '[') {
        if (depth >= m_maxDepth)
            return fail(tr("nested deeper than %1 levels").arg(m_maxDepth));
        return c == '{' ? parseObject(value, depth + 1) : parseArray(value, depth + 1);
    }
    if (c == '"') {
        startValue(value, LayoutJsonValue::String);
        if (!parseString(&value->m_string))
            return false;
        endValue(value);
        return true;
    }
    if (c == '-' || isDigit(c))
        return parseNumber(value);
    return parseLiteral(value);
}

bool LayoutJsonReader::parseObject(LayoutJsonValue *value, int depth)
{
    startValue(value, LayoutJsonValue::Object);
    ++m_pos;
    m_out->append('{');
    skipSpace();
    if (m_pos < m_size && m_data[m_pos] == '}') {
        ++m_pos;
        m_out->append('}');
        endValue(value);
        return true;
    }
    for (;;) {
        skipSpace();
        if (m_pos >= m_size || m_data[m_pos] != '"')
            return fail(tr("a member name in quotes was expected"));
        QString key;
        if (!parseString(&key))
            return false;
        skipSpace();
        if (m_pos >= m_size || m_data[m_pos] != ':')
            return fail(tr("a colon was expected after the member name"));
        ++m_pos;
        m_out->append(':');
        LayoutJsonValue member;
        if (!parseValue(&member, depth))
            return false;
        value->m_keys.push_back(key);
        value->m_children.push_back(std::move(member));
        skipSpace();
        if (m_pos >= m_size)
            return fail(tr("the object is not closed"));
        const char c = m_data[m_pos++];
        m_out->append(c);
        if (c == '}')
            break;
        if (c != ',')
            return failAt(m_pos - 1, tr("a comma or a closing brace was expected"));
    }
    endValue(value);
    return true;
}

bool LayoutJsonReader::parseArray(LayoutJsonValue *value, int depth)
{
    startValue(value, LayoutJsonValue::Array);
    ++m_pos;
    m_out->append('[');
    skipSpace();
    if (m_pos < m_size && m_data[m_pos] == ']') {
        ++m_pos;
        m_out->append(']');
        endValue(value);
        return true;
    }
    for (;;) {
        LayoutJsonValue element;
        if (!parseValue(&element, depth))
            return false;
        value->m_children.push_back(std::move(element));
        skipSpace();
        if (m_pos >= m_size)
            return fail(tr("the array is not closed"));
        const char c = m_data[m_pos++];
        m_out->append(c);
        if (c == ']')
            break;
        if (c != ',')
            return failAt(m_pos - 1, tr("a comma or a closing bracket was expected"));
    }
    endValue(value);
    return true;
}

bool LayoutJsonReader::readHex4(uint *code)
{
    if (m_pos + 4 > m_size)
        return fail(tr("the string ends inside an escape"));
    uint v = 0;
    for (int i = 0; i < 4; ++i) {
        const char c = m_data[m_pos + i];
        v <<= 4;
        if (isDigit(c))
            v |= uint(c - '0');
        else if (c >= 'a' && c <= 'f')
            v |= uint(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            v |= uint(c - 'A' + 10);
        else
            return failAt(m_pos + i, tr("a hexadecimal digit was expected"));
    }
    m_pos += 4;
    *code = v;
    return true;
}

// The token is copied to the compact text as written; the decoded text goes to decoded.
bool LayoutJsonReader::parseString(QString *decoded)
{
    const int start = m_pos;
    ++m_pos;
    QByteArray utf8;
    for (;;) {
        if (m_pos >= m_size)
            return failAt(start, tr("the string is not closed"));
        const char c = m_data[m_pos];
        if (c == '"') {
            ++m_pos;
            break;
        }
        if (uchar(c) < 0x20)
            return fail(tr("a control character inside a string"));
        if (c != '\\') {
            utf8.append(c);
            ++m_pos;
            continue;
        }
        if (++m_pos >= m_size)
            return fail(tr("the string ends inside an escape"));
        const char e = m_data[m_pos++];
        switch (e) {
        case '"':
        case '\\':
        case '/':
            utf8.append(e);
            break;
        case 'b':
            utf8.append('\b');
            break;
        case 'f':
            utf8.append('\f');
            break;
        case 'n':
            utf8.append('\n');
            break;
        case 'r':
            utf8.append('\r');
            break;
        case 't':
            utf8.append('\t');
            break;
        case 'u': {
            uint code = 0;
            if (!readHex4(&code))
                return false;
            if (code >= 0xD800 && code < 0xDC00 && m_pos + 6 <= m_size && m_data[m_pos] == '\\' &&
                m_data[m_pos + 1] == 'u') {
                const int save = m_pos;
                m_pos += 2;
                uint low = 0;
                if (!readHex4(&low))
                    return false;
                if (low >= 0xDC00 && low < 0xE000)
                    code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                else
                    m_pos = save;
            }
            // A lone surrogate cannot be represented; it reads as the replacement character.
            if (code >= 0xD800 && code < 0xE000)
                code = 0xFFFD;
            appendUtf8(&utf8, code);
            break;
        }
        default:
            return failAt(m_pos - 1, tr("an unknown escape sequence"));
        }
    }
    m_out->append(m_data + start, m_pos - start);
    *decoded = QString::fromUtf8(utf8);
    return true;
}

bool LayoutJsonReader::parseNumber(LayoutJsonValue *value)
{
    const int start = m_pos;
    if (m_data[m_pos] == '-')
        ++m_pos;
    if (m_pos >= m_size || !isDigit(m_data[m_pos]))
        return fail(tr("a digit was expected"));
    if (m_data[m_pos] == '0') {
        ++m_pos;
        if (m_pos < m_size && isDigit(m_data[m_pos]))
            return fail(tr("a number may not start with 0"));
    } else {
        while (m_pos < m_size && isDigit(m_data[m_pos]))
            ++m_pos;
    }
    if (m_pos < m_size && m_data[m_pos] == '.') {
        ++m_pos;
        if (m_pos >= m_size || !isDigit(m_data[m_pos]))
            return fail(tr("a digit was expected after the decimal point"));
        while (m_pos < m_size && isDigit(m_data[m_pos]))
            ++m_pos;
    }
    if (m_pos < m_size && (m_data[m_pos] == 'e' || m_data[m_pos] == 'E')) {
        ++m_pos;
        if (m_pos < m_size && (m_data[m_pos] == '+' || m_data[m_pos] == '-'))
            ++m_pos;
        if (m_pos >= m_size || !isDigit(m_data[m_pos]))
            return fail(tr("a digit was expected in the exponent"));
        while (m_pos < m_size && isDigit(m_data[m_pos]))
            ++m_pos;
    }
    const QByteArray token(m_data + start, m_pos - start);
    bool ok = false;
    const double number = token.toDouble(&ok);
    // Out of range numbers parse to infinity; they are kept as text but never read as a size.
    startValue(value, LayoutJsonValue::Number);
    value->m_number = ok ? number : (token.startsWith('-') ? -HUGE_VAL : HUGE_VAL);
    m_out->append(token);
    endValue(value);
    return true;
}

bool LayoutJsonReader::parseLiteral(LayoutJsonValue *value)
{
    static const struct
    {
        const char *word;
        LayoutJsonValue::Kind kind;
        bool flag;
    } literals[] = {{"true", LayoutJsonValue::Bool, true},
                    {"false", LayoutJsonValue::Bool, false},
                    {"null", LayoutJsonValue::Null, false}};
    for (const auto &literal : literals) {
        const int length = int(qstrlen(literal.word));
        if (m_pos + length <= m_size && qstrncmp(m_data + m_pos, literal.word, uint(length)) == 0) {
            startValue(value, literal.kind);
            value->m_bool = literal.flag;
            m_pos += length;
            m_out->append(literal.word);
            endValue(value);
            return true;
        }
    }
    return fail(tr("unexpected character '%1'").arg(QChar(uchar(m_data[m_pos]))));
}

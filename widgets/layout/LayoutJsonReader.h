#pragma once

#include "widgets/layout/LayoutJsonValue.h"

#include <QCoreApplication>
#include <QString>

// Strict JSON parser for layout documents. Layouts come from files and from other programs' databases,
// so the input size, the nesting depth and the number of values are bounded: a hostile or damaged file
// is refused with a reason instead of exhausting the stack or memory.
class LayoutJsonReader
{
    Q_DECLARE_TR_FUNCTIONS(LayoutJsonReader)
public:
    static constexpr int kDefaultMaxBytes = 4 * 1024 * 1024;
    static constexpr int kDefaultMaxDepth = 96;
    static constexpr int kDefaultMaxValues = 200000;

    void setMaxBytes(int bytes) { m_maxBytes = bytes; }
    void setMaxDepth(int depth) { m_maxDepth = depth; }
    void setMaxValues(int values) { m_maxValues = values; }

    // A leading UTF-8 byte order mark is skipped. On failure value is left alone and errorString() says
    // what is wrong and where.
    bool parse(const QByteArray &text, LayoutJsonValue *value);
    QString errorString() const { return m_error; }

private:
    bool parseValue(LayoutJsonValue *value, int depth);
    bool parseObject(LayoutJsonValue *value, int depth);
    bool parseArray(LayoutJsonValue *value, int depth);
    bool parseString(QString *decoded);
    bool parseNumber(LayoutJsonValue *value);
    bool parseLiteral(LayoutJsonValue *value);
    bool readHex4(uint *code);
    void skipSpace();
    bool fail(const QString &reason);
    bool failAt(int offset, const QString &reason);
    void startValue(LayoutJsonValue *value, LayoutJsonValue::Kind kind);
    void endValue(LayoutJsonValue *value);

    int m_maxBytes = kDefaultMaxBytes;
    int m_maxDepth = kDefaultMaxDepth;
    int m_maxValues = kDefaultMaxValues;
    const char *m_data = nullptr;
    int m_size = 0;
    int m_pos = 0;
    int m_values = 0;
    std::shared_ptr<QByteArray> m_out;
    QString m_error;
};

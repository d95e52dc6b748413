#include "link/DeviceExpression.h"

#include <QDebug>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

// Postfix ops. AndJump: top 0 stays 0 and jumps, else pops. OrJump: top true becomes 1 and jumps, else
// pops. ToBool: top becomes 0 or 1. JumpIfZero pops and jumps when 0.
enum DeviceExpression::Code : quint8
{
    Number,
    Param,
    Unary,
    Binary,
    AndJump,
    OrJump,
    ToBool,
    JumpIfZero,
    Jump
};

namespace {
constexpr int kMaxStack = 256; // the parser refuses expressions that would need more
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
enum Check : quint8
{
    None,
    NonZero,
    IntNonZero,
    Count64
};

qint64 toInt(double v)
{
    if (std::isnan(v))
        return 0;
    if (std::fabs(v) >= 9223372036854775808.0)
        return v > 0 ? std::numeric_limits<qint64>::max() : std::numeric_limits<qint64>::min();
    return qint64(v);
}

struct Operator
{
    int level; // binary: 0 (||) to 9 (* / %); unary and functions: number of arguments
    const char *text;
    quint8 check;
    const char *what;
    double (*fn)(double, double);
};

const Operator kBinary[] = {
    {0, "||", None, "", nullptr},
    {1, "&&", None, "", nullptr},
    {2, "|", None, "", [](double a, double b) { return double(toInt(a) | toInt(b)); }},
    {3, "^", None, "", [](double a, double b) { return double(toInt(a) ^ toInt(b)); }},
    {4, "&", None, "", [](double a, double b) { return double(toInt(a) & toInt(b)); }},
    {5, "==", None, "", [](double a, double b) { return double(a == b); }},
    {5, "!=", None, "", [](double a, double b) { return double(a != b); }},
    {6, "<", None, "", [](double a, double b) { return double(a < b); }},
    {6, "<=", None, "", [](double a, double b) { return double(a <= b); }},
    {6, ">", None, "", [](double a, double b) { return double(a > b); }},
    {6, ">=", None, "", [](double a, double b) { return double(a >= b); }},
    {7, "<<", Count64, "shift count",
     [](double a, double b) { return double(qint64(quint64(toInt(a)) << toInt(b))); }},
    {7, ">>", Count64, "shift count", [](double a, double b) { return double(toInt(a) >> toInt(b)); }},
    {8, "+", None, "", [](double a, double b) { return a + b; }},
    {8, "-", None, "", [](double a, double b) { return a - b; }},
    {9, "*", None, "", [](double a, double b) { return a * b; }},
    {9, "/", NonZero, "division", [](double a, double b) { return a / b; }},
    // INT64_MIN % -1 overflows; the result is 0 anyway.
    {9, "%", IntNonZero, "modulo",
     [](double a, double b) { return toInt(b) == -1 ? 0.0 : double(toInt(a) % toInt(b)); }},
};

const Operator kUnary[] = {
    {1, "-", None, "", [](double, double b) { return -b; }},
    {1, "!", None, "", [](double, double b) { return double(b == 0); }},
    {1, "~", None, "", [](double, double b) { return double(~toInt(b)); }},
};

const Operator kFunctions[] = {
    {2, "min", None, "", [](double a, double b) { return b < a ? b : a; }},
    {2, "max", None, "", [](double a, double b) { return b > a ? b : a; }},
    {1, "abs", None, "", [](double, double b) { return std::fabs(b); }},
    {2, "bit", Count64, "bit number",
     [](double a, double b) { return double((quint64(toInt(a)) >> toInt(b)) & 1); }},
};

// ASCII only: other scripts' digits are no numbers here.
bool isDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

int hexDigit(QChar c)
{
    const ushort u = c.unicode() | 0x20;
    return isDigit(c) ? c.unicode() - '0' : u >= 'a' && u <= 'f' ? u - 'a' + 10 : -1;
}
} // namespace

class DeviceExpression::Parser
{
public:
    Parser(DeviceExpression &e, const QChar *begin, const QChar *end) : m_e(e), m_p(begin), m_end(end) {}

    // Appends the ops of one whole expression; false (with the reason kept) on a syntax error.
    bool parse()
    {
        if (!expr())
            return false;
        skip();
        return m_p == m_end || fail(QStringLiteral("unexpected '%1'").arg(*m_p));
    }

private:
    bool fail(const QString &reason)
    {
        m_e.fail(reason);
        return false;
    }
    void skip()
    {
        while (m_p != m_end && m_p->isSpace())
            ++m_p;
    }
    QChar at(int i) const { return m_end - m_p > i ? m_p[i] : QChar(); }
    bool take(char c)
    {
        skip();
        return at(0) == QLatin1Char(c) && ++m_p;
    }
    bool expect(char c)
    {
        return take(c) ||
               fail(m_p == m_end ? QStringLiteral("'%1' expected at end").arg(QLatin1Char(c))
                                 : QStringLiteral("'%1' expected before '%2'").arg(QLatin1Char(c)).arg(*m_p));
    }
    int put(Code code, int stackChange, const Operator *op = nullptr, int arg = 0, double value = 0)
    {
        m_depth += stackChange;
        m_e.m_ops.append(
            Op{code, op ? op->check : quint8(None), arg, value, op ? op->fn : nullptr, op ? op->what : ""});
        return m_e.m_ops.size() - 1;
    }
    void patch(int op) { m_e.m_ops[op].arg = m_e.m_ops.size(); }
    bool enter()
    {
        return ++m_nesting <= kMaxDepth || fail(QStringLiteral("nested deeper than %1").arg(kMaxDepth));
    }

    bool expr()
    {
        if (!enter() || !binary(0))
            return false;
        if (take('?')) {
            const int toElse = put(JumpIfZero, -1);
            if (!expr() || !expect(':'))
                return false;
            const int toEnd = put(Jump, 0);
            patch(toElse);
            --m_depth; // the other branch starts from the same stack
            if (!expr())
                return false;
            patch(toEnd);
        }
        --m_nesting;
        return true;
    }

    // The binary operator of this precedence level at the cursor, read as the longest spelling.
    const Operator *binaryOp(int level) const
    {
        auto spelled = [this](const Operator &op) {
            return at(0) == QLatin1Char(op.text[0]) && (!op.text[1] || at(1) == QLatin1Char(op.text[1]));
        };
        const bool twoChars = std::any_of(std::begin(kBinary), std::end(kBinary),
                                          [&](const Operator &op) { return op.text[1] && spelled(op); });
        for (const Operator &op : kBinary) {
            if (op.level == level && bool(op.text[1]) == twoChars && spelled(op))
                return &op;
        }
        return nullptr;
    }

    bool binary(int level)
    {
        if (level == 10)
            return unary();
        if (!binary(level + 1))
            return false;
        for (;;) {
            skip();
            const Operator *op = binaryOp(level);
            if (!op)
                return true;
            m_p += qstrlen(op->text);
            if (!op->fn) { // && and || skip their right side when the left decides
                const int jump = put(level == 0 ? OrJump : AndJump, -1);
                if (!binary(level + 1))
                    return false;
                put(ToBool, 0);
                patch(jump);
            } else {
                if (!binary(level + 1))
                    return false;
                put(Binary, -1, op);
            }
        }
    }

    bool unary()
    {
        skip();
        const Operator *op = std::find_if(std::begin(kUnary), std::end(kUnary),
                                          [&](const Operator &u) { return at(0) == QLatin1Char(u.text[0]); });
        if (op == std::end(kUnary))
            return primary();
        ++m_p;
        if (!enter() || !unary())
            return false;
        put(Unary, 0, op);
        --m_nesting;
        return true;
    }

    bool primary()
    {
        if (m_depth >= kMaxStack) // every push starts here
            return fail(QStringLiteral("too complex to evaluate"));
        skip();
        if (m_p == m_end)
            return fail(QStringLiteral("unexpected end"));
        if (take('('))
            return expr() && expect(')');
        if (isDigit(*m_p))
            return number();
        const QChar *start = m_p;
        while (m_p != m_end && (isDigit(*m_p) || m_p->isLetter() || *m_p == QLatin1Char('_')))
            ++m_p;
        const QString name(start, int(m_p - start));
        if (name.isEmpty())
            return fail(QStringLiteral("unexpected '%1'").arg(*m_p));
        if ((name[0] == QLatin1Char('P') || name[0] == QLatin1Char('p')) && name.size() > 1 &&
            std::all_of(name.begin() + 1, name.end(), isDigit)) {
            const int id = name.size() <= 6 ? name.midRef(1).toInt() : kMaxParam + 1;
            if (id > kMaxParam)
                return fail(QStringLiteral("parameter %1 out of range").arg(name));
            put(Param, 1, nullptr, id);
            return true;
        }
        for (const Operator &f : kFunctions) {
            if (name != QLatin1String(f.text))
                continue;
            if (!expect('('))
                return false;
            for (int i = 0; i < f.level; ++i) {
                if ((i > 0 && !expect(',')) || !expr())
                    return false;
            }
            put(f.level == 1 ? Unary : Binary, 1 - f.level, &f);
            return expect(')');
        }
        return fail(QStringLiteral("unknown name '%1'").arg(name));
    }

    bool number()
    {
        if (at(0) == QLatin1Char('0') && (at(1) == QLatin1Char('x') || at(1) == QLatin1Char('X'))) {
            m_p += 2;
            quint64 value = 0;
            int count = 0;
            for (; m_p != m_end && hexDigit(*m_p) >= 0; ++m_p, ++count)
                value = value << 4 | quint64(hexDigit(*m_p));
            if (count == 0 || count > 16)
                return fail(count ? QStringLiteral("hex number longer than 16 digits")
                                  : QStringLiteral("hex digits expected"));
            put(Number, 1, nullptr, 0, double(value));
            return true;
        }
        QByteArray digits;
        while (m_p != m_end &&
               (isDigit(*m_p) || (*m_p == QLatin1Char('.') && isDigit(at(1)) && !digits.contains('.'))))
            digits += char((m_p++)->unicode());
        put(Number, 1, nullptr, 0, digits.toDouble());
        return true;
    }

    DeviceExpression &m_e;
    const QChar *m_p;
    const QChar *m_end;
    int m_depth = 0;
    int m_nesting = -1; // the whole expression is not nested
};

DeviceExpression DeviceExpression::number(const QString &text)
{
    DeviceExpression e;
    e.m_text = text;
    if (text.size() > kMaxLength)
        e.fail(QStringLiteral("longer than %1 characters").arg(kMaxLength));
    else if (Parser(e, text.constData(), text.constData() + text.size()).parse())
        e.m_fields.append(Field{QString(), 0, e.m_ops.size(), QByteArray(), false});
    return e;
}

DeviceExpression DeviceExpression::label(const QString &text)
{
    DeviceExpression e;
    e.m_text = text;
    if (text.size() > kMaxLength) {
        e.fail(QStringLiteral("longer than %1 characters").arg(kMaxLength));
        return e;
    }
    static const QRegularExpression format(
        QStringLiteral("^%[-+ 0#]*([0-9]{0,2})(?:\\.([0-9]{1,2}))?[diuxXofFeEgG]$"));
    Field field;
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if ((c == QLatin1Char('{') || c == QLatin1Char('}')) && i + 1 < text.size() && text[i + 1] == c) {
            field.literal += c;
            ++i;
        } else if (c == QLatin1Char('}')) {
            e.fail(QStringLiteral("'}' without '{' at %1").arg(i));
            return e;
        } else if (c == QLatin1Char('{')) {
            const int close = text.indexOf(QLatin1Char('}'), i + 1);
            if (close < 0) {
                e.fail(QStringLiteral("'{' at %1 not closed").arg(i));
                return e;
            }
            // ":%" cannot occur inside an expression, so it always starts the format.
            const int split = int(std::min(uint(close), uint(text.indexOf(QLatin1String(":%"), i + 1))));
            field.begin = e.m_ops.size();
            if (!Parser(e, text.constData() + i + 1, text.constData() + split).parse())
                return e;
            field.end = e.m_ops.size();
            const QString fieldFormat = text.mid(split + 1, close - split - 1);
            const QRegularExpressionMatch m = format.match(fieldFormat);
            if (split < close) {
                field.integer = QStringLiteral("diuxXo").contains(fieldFormat.back());
                if (!m.hasMatch() || m.capturedRef(1).toInt() > 64 || m.capturedRef(2).toInt() > 20 ||
                    (fieldFormat.contains(QLatin1Char('#')) &&
                     QStringLiteral("diu").contains(fieldFormat.back()))) {
                    e.fail(QStringLiteral("bad format '%1'").arg(fieldFormat));
                    return e;
                }
                field.format = fieldFormat.toLatin1();
                if (field.integer)
                    field.format.insert(field.format.size() - 1, "ll");
            }
            e.m_fields.append(field);
            field = Field();
            i = close;
        } else {
            field.literal += c;
        }
    }
    if (!field.literal.isEmpty() || e.m_fields.isEmpty())
        e.m_fields.append(field);
    return e;
}

void DeviceExpression::fail(const QString &reason)
{
    if (m_error.isEmpty())
        m_error = reason;
    fault(reason);
}

double DeviceExpression::fault(const QString &reason) const
{
    if (!m_warned)
        qWarning().noquote() << QStringLiteral("Device expression \"%1\": %2").arg(m_text.left(200), reason);
    m_warned = true;
    return kNaN;
}

double DeviceExpression::run(int begin, int end, const Lookup &lookup) const
{
    double stack[kMaxStack];
    int top = -1;
    const Op *ops = m_ops.constData();
    for (int i = begin; i < end; ++i) {
        const Op &op = ops[i];
        switch (op.code) {
        case Number:
            stack[++top] = op.value;
            break;
        case Param:
            if (!lookup || !lookup(op.arg, &stack[++top]))
                return fault(QStringLiteral("unknown parameter P%1").arg(op.arg));
            break;
        case Unary:
            stack[top] = op.fn(0, stack[top]);
            break;
        case Binary: {
            const double b = stack[top--];
            const qint64 n = toInt(b);
            if ((op.check == NonZero && b == 0) || (op.check == IntNonZero && n == 0))
                return fault(QStringLiteral("%1 by zero").arg(QLatin1String(op.what)));
            if (op.check == Count64 && (n < 0 || n > 63))
                return fault(QStringLiteral("%1 %2 out of range").arg(QLatin1String(op.what)).arg(n));
            stack[top] = op.fn(stack[top], b);
            break;
        }
        case AndJump:
        case OrJump:
            if ((stack[top] == 0) == (op.code == AndJump)) {
                stack[top] = op.code == AndJump ? 0 : 1;
                i = op.arg - 1;
            } else {
                --top;
            }
            break;
        case ToBool:
            stack[top] = stack[top] == 0 ? 0 : 1;
            break;
        case JumpIfZero:
            if (stack[top--] == 0)
                i = op.arg - 1;
            break;
        case Jump:
            i = op.arg - 1;
            break;
        }
    }
    return top == 0 ? stack[0] : kNaN;
}

double DeviceExpression::evaluate(const Lookup &lookup) const
{
    for (const Field &field : m_fields) {
        if (field.begin < field.end)
            return run(field.begin, field.end, lookup);
    }
    return kNaN;
}

namespace {
QString formatted(const QByteArray &format, bool integer, double v)
{
    char buffer[512]; // widest: 309 integer digits of %f, a point and 20 decimals
    int n;
    if (integer && std::strchr("di", format.back()))
        n = std::snprintf(buffer, sizeof buffer, format.constData(), static_cast<long long>(toInt(v)));
    else if (integer)
        n = std::snprintf(buffer, sizeof buffer, format.constData(),
                          static_cast<unsigned long long>(toInt(v)));
    else
        n = std::snprintf(buffer, sizeof buffer, format.constData(), v);
    return QString::fromLatin1(buffer, std::clamp(n, 0, int(sizeof buffer) - 1));
}
} // namespace

QString DeviceExpression::evaluateLabel(const Lookup &lookup) const
{
    if (!isValid())
        return m_text;
    QString out;
    for (const Field &field : m_fields) {
        out += field.literal;
        if (field.begin == field.end)
            continue;
        const double v = run(field.begin, field.end, lookup);
        if (std::isnan(v) || (field.integer && !std::isfinite(v)))
            out += QLatin1Char('?');
        else if (field.format.isEmpty())
            out += std::fabs(v) < 1e15 && v == std::trunc(v) ? QString::number(qint64(v))
                                                             : QString::number(v, 'g', 6);
        else
            out += formatted(field.format, field.integer, v);
    }
    return out;
}

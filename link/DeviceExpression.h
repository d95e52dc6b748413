#pragma once

// Expressions over a device's parameter values, used by configuration pages to show and hide
// components and to build label texts. Parsed once, evaluated on every update.
//
// Grammar (C precedence, lowest first; binary operators associate to the left, ?: to the right):
//
//   expr     = or [ "?" expr ":" expr ]
//   or       = and { "||" and }                      short-circuit, result 0 or 1
//   and      = bitor { "&&" bitor }                  short-circuit, result 0 or 1
//   bitor    = bitxor { "|" bitxor }
//   bitxor   = bitand { "^" bitand }
//   bitand   = equality { "&" equality }
//   equality = relation { ("==" | "!=") relation }
//   relation = shift { ("<" | "<=" | ">" | ">=") shift }
//   shift    = sum { ("<<" | ">>") sum }               count 0..63; ">>" keeps the sign
//   sum      = product { ("+" | "-") product }
//   product  = unary { ("*" | "/" | "%") unary }       "/" divides doubles, "%" integers
//   unary    = ("-" | "!" | "~") unary | primary       spaces may separate any two tokens
//   primary  = number | param | func "(" expr { "," expr } ")" | "(" expr ")"
//   number   = digit { digit } [ "." digit { digit } ]
//            | ("0x" | "0X") hexdigit { hexdigit }     up to 16 hex digits
//   param    = ("P" | "p") digit { digit }             parameter id 0..65535, e.g. P12
//   func     = "min" | "max" (two arguments) | "abs" (one) | "bit" (value, n: bit n, 0..63, of value)
//
// Values are doubles. Bitwise operators, "%", shifts and bit() work on the values truncated toward
// zero to 64-bit integers (NaN counts as 0, out-of-range values saturate). Comparisons, "!", "&&" and
// "||" give 0 or 1; a value is true when it is not 0 (NaN is true).
//
// Labels are literal text with fields:  "Voltage {P3/10:%.1f} V".  A field is "{" expr [":" format] "}";
// "{{" and "}}" are literal braces. format = "%" [flags "-+ 0#"] [width 0..64] ["." precision 0..20]
// conversion, conversion one of d i u x X o (integer) f F e E g G (floating). ":%" never occurs inside
// an expression, so it always starts the format. Without a format, whole numbers below 1e15 show as
// integers and other values as %g.
//
// Errors never throw. Syntax errors (also input over kMaxLength characters, more than kMaxDepth levels
// of parentheses, function arguments, conditional branches and unary operators, or an expression that
// would need over 256 pending values) make the expression invalid; evaluation errors (unknown parameter,
// division or modulo by zero, shift or bit count out of range) stop that evaluation. Either way a number
// evaluates to NaN (so a visibility expression with an error shows its component), a label field shows "?"
// (as for a NaN value), and an invalid label shows its source text unchanged. Each expression logs its first
// error once.

#include <QString>
#include <QVector>

#include <functional>

class DeviceExpression
{
public:
    // Looks up a parameter's current value; false when the device has no such parameter.
    using Lookup = std::function<bool(int id, double *value)>;

    static constexpr int kMaxLength = 4096;
    static constexpr int kMaxDepth = 64;
    static constexpr int kMaxParam = 65535;

    DeviceExpression() = default;
    static DeviceExpression number(const QString &text);
    static DeviceExpression label(const QString &text);

    // A default-constructed expression is invalid too.
    bool isValid() const { return m_error.isEmpty() && !m_fields.isEmpty(); }
    QString error() const
    {
        return isValid() || !m_error.isEmpty() ? m_error : QStringLiteral("no expression");
    }
    QString text() const { return m_text; }

    // The expression's value; NaN on any error. A label evaluates its first field.
    double evaluate(const Lookup &lookup) const;
    // Visibility: true unless the value is exactly 0 (errors show the component).
    bool isTrue(const Lookup &lookup) const { return !(evaluate(lookup) == 0); }
    // The label text with every field filled in.
    QString evaluateLabel(const Lookup &lookup) const;

private:
    enum Code : quint8;
    using Fn = double (*)(double a, double b);
    struct Op
    {
        Code code;
        quint8 check;     // what makes the right operand an error
        int arg;          // parameter id, jump target
        double value;     // a number
        Fn fn;            // operators and functions; unary ones take the operand as b
        const char *what; // names the operand in errors
    };
    struct Field
    {
        QString literal; // text before the field
        int begin = 0;   // ops of the field's expression, [begin, end); begin == end: no field
        int end = 0;
        QByteArray format; // printf format, empty for the default
        bool integer = false;
    };
    class Parser;

    double run(int begin, int end, const Lookup &lookup) const;
    void fail(const QString &reason);
    double fault(const QString &reason) const; // logs once, gives NaN

    QString m_text;
    QString m_error;
    QVector<Op> m_ops;
    QVector<Field> m_fields;
    mutable bool m_warned = false;
};

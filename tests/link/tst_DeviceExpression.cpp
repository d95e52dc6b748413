#include "link/DeviceExpression.h"

#include <QtTest>

#include <cmath>

namespace {
// P0 = 0, P1 = 1, P2 = 2, P3 = 230, P5 = 5, P7 = 0b1010, P10 = -7; every other parameter is unknown.
bool lookup(int id, double *value)
{
    static const QMap<int, double> values{{0, 0}, {1, 1}, {2, 2}, {3, 230}, {5, 5}, {7, 10}, {10, -7}};
    *value = values.value(id);
    return values.contains(id);
}

const double kError = std::nan("");

QStringList warnings;
void collect(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtWarningMsg)
        warnings << message;
}
} // namespace

class tst_DeviceExpression : public QObject
{
    Q_OBJECT

private slots:
    void evaluate_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("expected"); // NaN: an error
        QTest::addColumn<bool>("valid");
        const auto row = [](const char *text, double expected, bool valid = true) {
            QTest::newRow(text) << QString::fromLatin1(text) << expected << valid;
        };
        // Numbers and parameters.
        row("42", 42);
        row(" 1.25 ", 1.25);
        row("0x1F + 0XfF", 286);
        row("0xFFFFFFFFFFFFFFFF", 18446744073709551616.0);
        row("P3 + p3 + P003", 690);
        // Unary operators.
        row("-P2", -2);
        row("!P0 + !P5 * 10", 1);
        row("~5", -6);
        row("--3 + -~0 + !!7", 5);
        // Arithmetic, precedence and left associativity.
        row("7 / 2", 3.5);
        row("7 % 3 + -7 % 3 * 10 + 7.9 % 3.9 * 100", 1 - 10 + 100);
        row("2 - 3 - 4", -5);
        row("64 / 4 / 2", 8);
        row("2 + 3 * 4", 14);
        row("(2 + 3) * 4", 20);
        row("10 - 2 * 3 % 4", 8);
        // Shifts: counts 0..63, arithmetic right shift.
        row("1 << 4", 16);
        row("-16 >> 2", -4);
        row("1 + 1 << 2", 8);
        row("256 >> 2 >> 1", 32);
        // Comparisons.
        row("(3 < 4) + (4 <= 4) * 2 + (5 > 6) * 4 + (5 >= 6) * 8 + (P2 == 2) * 16 + (P2 != 2) * 32", 19);
        row("1 < 2 == 1", 1);
        row("3 > 2 > 1", 0);
        row("3 << 1 < 7", 1);
        // Bitwise, on truncated values.
        row("6 & 3", 2);
        row("6 | 3", 7);
        row("6 ^ 3", 5);
        row("1 | 2 ^ 3 & 4", 3);
        row("5 & 4 == 4", 1);
        row("2.9 | 0", 2);
        row("-2.9 | 0", -2);
        // Logic gives 0 or 1, && before ||, and the untaken side is not evaluated.
        row("P5 && P2", 1);
        row("P0 && P2", 0);
        row("P0 || 0", 0);
        row("P0 || 3", 1);
        row("1 || 0 && 0", 1);
        row("(1 || 0) && 0", 0);
        row("P0 && P99", 0);
        row("P1 || P99", 1);
        row("P0 && 1 / 0", 0);
        row("P1 ? 5 : P99", 5);
        row("P0 ? P99 : 6", 6);
        // The conditional: lowest precedence, right associative.
        row("P1 ? 10 : 20", 10);
        row("P0 ? 1 : P1 ? 2 : 3", 2);
        row("P1 ? P0 ? 1 : 2 : 3", 2);
        row("1 ? 2 : 3 + 10", 2);
        row("(P0 ? 1 : 2) * 3", 6);
        row("P2 == 2 ? P3 / 10 : -1", 23);
        // Functions.
        row("min(3, -2) * 10 + max(3, -2)", -17);
        row("abs(-4.5)", 4.5);
        row("bit(P7, 0) + bit(P7, 1) * 2 + bit(P7, 3) * 4 + bit(-1, 63) * 8", 14);
        row("max(min(P3, 100), P2 * 10)", 100);
        row("P3 == 230 && bit(P7, 1) && !bit(P7, 2)", 1);
        // Evaluation errors: the expression stays valid.
        row("P99", kError);
        row("1 + P10 * P99", kError);
        row("1 / 0", kError);
        row("1 / P0", kError);
        row("5 % 0", kError);
        row("5 % 0.5", kError);
        row("1 << 64", kError);
        row("1 >> -1", kError);
        row("bit(P7, 64)", kError);
        row("P1 ? 1 / P0 : 2", kError);
        // Syntax errors.
        for (const char *bad : {"",
                                "1 +",
                                "(1",
                                "1)",
                                "foo(1)",
                                "min(1)",
                                "abs(1, 2)",
                                "P",
                                "P70000",
                                "0x",
                                "0x11111111111111111",
                                "1 ? 2",
                                "3 $ 4",
                                "1.",
                                "2 ** 3",
                                "~",
                                "1 = 2",
                                "P1 P2",
                                "min 1, 2",
                                "{1}",
                                "1 :% 2"})
            row(bad, kError, false);
        // Limits: 4096 characters, 64 levels.
        const QString sum = QStringLiteral("1+").repeated(2047) + QStringLiteral("1 ");
        QTest::newRow("4096 characters") << sum << 2048.0 << true;
        QTest::newRow("4097 characters") << sum + QLatin1Char(' ') << kError << false;
        QTest::newRow("64 parentheses") << QString(64, '(') + '1' + QString(64, ')') << 1.0 << true;
        QTest::newRow("65 parentheses") << QString(65, '(') + '1' + QString(65, ')') << kError << false;
        QTest::newRow("64 unary") << QString(64, '-') + '1' << 1.0 << true;
        QTest::newRow("65 unary") << QString(65, '-') + '1' << kError << false;
        QTest::newRow("65 conditionals") << QStringLiteral("0?0:").repeated(65) + '1' << kError << false;
        QTest::newRow("pending values")
            << QStringLiteral("1||1&&1|1^1&1==1<1<<1+1*(").repeated(40) + '1' + QString(40, ')') << kError
            << false;
    }

    void evaluate()
    {
        QFETCH(QString, text);
        QFETCH(double, expected);
        QFETCH(bool, valid);
        const DeviceExpression e = DeviceExpression::number(text);
        QCOMPARE(e.isValid(), valid);
        QCOMPARE(e.error().isEmpty(), valid);
        const double value = e.evaluate(lookup);
        if (std::isnan(expected))
            QVERIFY2(std::isnan(value), qPrintable(QString::number(value)));
        else
            QCOMPARE(value, expected);
        // Visibility: shown unless exactly 0, so an error shows the component.
        QCOMPARE(e.isTrue(lookup), expected != 0);
    }

    void label_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<bool>("valid");
        const auto row = [](const char *text, const char *expected, bool valid = true) {
            QTest::newRow(text) << QString::fromLatin1(text) << QString::fromLatin1(expected) << valid;
        };
        row("Voltage {P3/10:%.1f} V", "Voltage 23.0 V");
        row("{P3} {P3/100} {P3 * 1000000000000} {P3 * 10000000000000}", "230 2.3 230000000000000 2.3e+15");
        row("{P10:%+d} {P5:%03d} {P7:%x}/{P7:%#o} {P3/7:%.3e}", "-7 005 a/012 3.286e+01");
        row("{2.5:%d} {-2.5:%d} {P5:%-3d}|", "2 -2 5  |");
        row("{-1:%x} {P10:%u} {-P3:%.0f}", "ffffffffffffffff 18446744073709551609 -230");
        row("{{P3}} = {P3}, a }} b", "{P3} = 230, a } b");
        row("{P1 ? 1 : 2:%d} {P0 ? 10 : 20}", "1 20");
        row("no fields", "no fields");
        row("", "");
        // A failing field shows "?", the rest still shows.
        row("U={P99} V, {1/0:%.2f}, {P5}", "U=? V, ?, 5");
        // An invalid label shows its text.
        for (const char *bad : {"{P3", "a } b", "{P3:%q}", "{P3:%123d}", "{P3:%.30f}", "{P3:%#d}", "{}",
                                "{P3:%d %d}", "{P3:%n}", "{P3:%s}", "{P3:%}", "{P3 +}"})
            row(bad, bad, false);
    }

    void label()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QFETCH(bool, valid);
        const DeviceExpression e = DeviceExpression::label(text);
        QCOMPARE(e.isValid(), valid);
        QCOMPARE(e.evaluateLabel(lookup), expected);
    }

    // Each expression reports its first error once, with its text and the reason, however often it runs.
    void warnsOnce()
    {
        warnings.clear();
        const QtMessageHandler previous = qInstallMessageHandler(collect);
        const DeviceExpression unknown = DeviceExpression::number(QStringLiteral("P99 + 1"));
        for (int i = 0; i < 3; ++i)
            unknown.evaluate(lookup);
        const DeviceExpression broken = DeviceExpression::number(QStringLiteral("1 +"));
        broken.evaluate(lookup);
        const DeviceExpression label = DeviceExpression::label(QStringLiteral("{P98} {1/0}"));
        label.evaluateLabel(lookup);
        label.evaluateLabel(lookup);
        qInstallMessageHandler(previous);
        QCOMPARE(warnings.size(), 3);
        QVERIFY(warnings[0].contains(QLatin1String("P99 + 1")) &&
                warnings[0].contains(QLatin1String("unknown")));
        QVERIFY(warnings[1].contains(QLatin1String("1 +")));
        QVERIFY(warnings[2].contains(QLatin1String("{P98} {1/0}")));
    }
};

QTEST_APPLESS_MAIN(tst_DeviceExpression)
#include "tst_DeviceExpression.moc"

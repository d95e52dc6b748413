// A device configuration page re-evaluated on every parameter update: 40 visibility expressions of
// the usual shapes and 10 labels, evaluated against a table of parameter values that changes between
// rounds; and what parsing one expression costs.
// Usage: bench_expression [rounds] [runs]
#include "BenchUtil.h"

#include "link/DeviceExpression.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace BenchUtil;

namespace {
QStringList visibility()
{
    const char *shapes[] = {"P%1 == 2 && bit(P%2, 1)",
                            "P%1 > 0 ? 1 : 0",
                            "P%1 != 0",
                            "(P%1 & 0x0F) == 3 || P%2 >= 100",
                            "!bit(P%1, 3) && P%2 < 50",
                            "P%1 == 1 || P%1 == 4 || P%1 == 7",
                            "max(P%1, P%2) > 10 && abs(P%2 - 20) <= 5",
                            "(P%1 >> 4) % 3 == 1 ? P%2 > 0 : P%2 < 0"};
    QStringList texts;
    for (int i = 0; i < 40; ++i)
        texts << QString::fromLatin1(shapes[i % 8])
                     .replace(QLatin1String("%1"), QString::number(i % 32))
                     .replace(QLatin1String("%2"), QString::number((i * 7 + 3) % 32));
    return texts;
}

QStringList labels()
{
    QStringList texts;
    for (int i = 0; i < 10; ++i)
        texts << QStringLiteral("Voltage {P%1/10:%.1f} V, mode {P%2 & 3} {{raw {P%2:%04x}}}")
                     .arg(i)
                     .arg(i + 10);
    return texts;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, atoi(argv[1])) : 100000;
    const int runs = argc > 2 ? std::max(3, atoi(argv[2])) : 7;
    std::vector<double> values(32);
    const DeviceExpression::Lookup lookup = [&values](int id, double *value) {
        if (id < 0 || id >= int(values.size()))
            return false;
        *value = values[size_t(id)];
        return true;
    };

    const QStringList texts = visibility();
    std::vector<DeviceExpression> page;
    Timing parse;
    const int parseRounds = 200;
    for (int r = 0; r < runs; ++r) {
        parse.add([&] {
            for (int i = 0; i < parseRounds; ++i) {
                page.clear();
                for (const QString &t : texts)
                    page.push_back(DeviceExpression::number(t));
            }
        });
    }
    std::printf("expressions: %d visibility expressions, %d labels, %d rounds, %d runs\n", int(texts.size()),
                10, rounds, runs);
    parse.print("parse 40 expressions x 200");
    std::printf("  parse: %.2f us per expression\n",
                median(parse.cpu) * 1000.0 / (parseRounds * texts.size()));

    int shown = 0;
    Timing evaluate;
    for (int r = 0; r < runs; ++r) {
        evaluate.add([&] {
            for (int round = 0; round < rounds; ++round) {
                values[size_t(round % 32)] = round % 211;
                for (const DeviceExpression &e : page)
                    shown += e.isTrue(lookup);
            }
        });
    }
    evaluate.print("evaluate the page of 40, all rounds");
    std::printf("  evaluate: %.1f million expressions per second (%d shown)\n",
                double(rounds) * texts.size() / median(evaluate.cpu) / 1000.0, shown);

    std::vector<DeviceExpression> labelPage;
    for (const QString &t : labels())
        labelPage.push_back(DeviceExpression::label(t));
    int characters = 0;
    const int labelRounds = std::max(1, rounds / 10);
    Timing label;
    for (int r = 0; r < runs; ++r) {
        label.add([&] {
            for (int round = 0; round < labelRounds; ++round) {
                values[size_t(round % 32)] = round % 4001;
                for (const DeviceExpression &e : labelPage)
                    characters += e.evaluateLabel(lookup).size();
            }
        });
    }
    label.print("fill 10 labels, rounds / 10");
    std::printf("  labels: %.2f million labels per second (%d characters)\n",
                double(labelRounds) * labelPage.size() / median(label.cpu) / 1000.0, characters);
    return 0;
}

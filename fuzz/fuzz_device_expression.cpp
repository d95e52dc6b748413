// Device expressions and labels on arbitrary text: nothing crashes, an invalid one says why and
// evaluates to its documented error value, and a valid one evaluates the same way twice.
#include "link/DeviceExpression.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace {
// Odd ids are unknown; the known ones include the awkward values.
bool lookup(int id, double *value)
{
    static const double special[] = {0, -1, 1e300, -1e300, INFINITY, NAN, 9223372036854775807.0, 0.5};
    *value = id < 8 ? special[id] : id * 0.25 - 100;
    return id % 2 == 0 || id < 8;
}

bool same(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const QtMessageHandler quiet =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    Q_UNUSED(quiet);
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));

    const DeviceExpression number = DeviceExpression::number(text);
    if (number.isValid() == !number.error().isEmpty() ||
        (number.isValid() && text.size() > DeviceExpression::kMaxLength))
        std::abort();
    const double value = number.evaluate(lookup);
    if ((!number.isValid() && (!std::isnan(value) || !number.isTrue(lookup))) ||
        !same(value, number.evaluate(lookup)))
        std::abort();

    const DeviceExpression label = DeviceExpression::label(text);
    if (label.isValid() == !label.error().isEmpty())
        std::abort();
    const QString shown = label.evaluateLabel(lookup);
    if ((!label.isValid() && shown != text) || shown != label.evaluateLabel(lookup))
        std::abort();
    return 0;
}

// The configuration pages: the time from opening the window to the largest page of the simulated devices
// drawn with its values (every component created and visible), and the time one parameter update takes on
// a page of 40 components whose visibility each depends on an expression.
// Usage: bench_pages [runs]
#include "BenchUtil.h"

#include "link/LinkMetaTypes.h"
#include "widgets/devices/DeviceParamLink.h"
#include "widgets/devices/WidgetLxBusConfig.h"
#include "widgets/layout/Prompter.h"

#include <QApplication>
#include <QDir>

#include <cstdio>

using namespace BenchUtil;

namespace {
// Answers at once, as a device on a fast bus would.
class InstantLink : public DeviceParamLink
{
public:
    DeviceSettings active;
    int round = 0;
    void setActiveDevice(const DeviceSettings &s) override
    {
        active = s;
        answer();
    }
    void read() override { answer(); }
    void write(const DevParamVector &) override {}
    void answer()
    {
        DevParamVector v = active.params;
        for (DevParam &p : v) {
            p.value = qint32(p.min + (p.id * 7 + round) % (p.max - p.min + 1));
            p.loaded = true;
        }
        ++round;
        emit valuesLoaded(v);
    }
};

class Silent : public Prompter
{
public:
    void information(QWidget *, const QString &, const QString &) override {}
};

Device deviceFor(const DeviceDefinition &d)
{
    Device device;
    device.identifier = 0x00A10001;
    device.hardware = d.hardware.first();
    device.name = d.name;
    device.extra1 = 99; // no firmware message
    return device;
}

// 40 numbers, each shown while an expression over ten switches holds.
DeviceDefinitions visibilityPage()
{
    QString params;
    QString elements;
    for (int i = 1; i <= 50; ++i)
        params +=
            QStringLiteral(R"(%1{"id": %2, "address": %3, "size": 1, "min": 0, "max": 9, "name": "P%2"})")
                .arg(i > 1 ? QStringLiteral(",") : QString())
                .arg(i)
                .arg(0x18 + i);
    const char *shapes[] = {"P%1 == 2 && bit(P%2, 1)", "P%1 > 4 ? 1 : 0", "(P%1 & 3) == 1 || P%2 >= 5",
                            "max(P%1, P%2) > 3"};
    for (int i = 0; i < 40; ++i)
        elements += QStringLiteral(
                        R"(%1{"kind": "Int", "pText": "Value %2", "pParam": %3, "pMax": 9, "visible": "%4"})")
                        .arg(i ? QStringLiteral(",") : QString())
                        .arg(i)
                        .arg(11 + i)
                        .arg(QString::fromLatin1(shapes[i % 4]).arg(1 + i % 10).arg(1 + (i + 3) % 10));
    const QString source =
        QStringLiteral(R"({"name": "Bench", "hardware": [4095], "parameters": [%1], "pages": [{"id": 0,
            "title": "Forty", "elements": [%2]}]})")
            .arg(params, elements);
    DeviceDefinitions d;
    QString error;
    if (!d.addSource(source.toUtf8(), QStringLiteral("bench.json"), &error))
        qFatal("%s", qPrintable(error));
    return d;
}
} // namespace

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        qputenv("QT_QUICK_BACKEND", "software");
    QApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 7;
    registerLinkMetaTypes();
    Silent prompter;

    DeviceDefinitions simulated;
    const QDir sources(QStringLiteral(VEXO_SOURCE_DIR "/link/definitions"));
    for (const QString &f : sources.entryList({QStringLiteral("*.json")})) {
        QString error;
        if (!simulated.addSourceFile(sources.filePath(f), &error))
            qFatal("%s", qPrintable(error));
    }
    const DeviceDefinition *largest = nullptr;
    const DevicePage *largestPage = nullptr;
    for (const DeviceDefinition &d : simulated.devices()) {
        for (const DevicePage &p : d.pages) {
            if (!largestPage || p.elements.size() > largestPage->elements.size()) {
                largest = &d;
                largestPage = &p;
            }
        }
    }

    std::printf("configuration pages (%s scene graph), %d runs (median)\n",
                qgetenv("QT_QUICK_BACKEND").constData(), runs);
    Timing open;
    for (int r = 0; r < runs; ++r) {
        InstantLink link;
        open.add([&] {
            WidgetLxBusConfig window(deviceFor(*largest), &link, &prompter);
            window.resize(380, 640);
            window.show();
            window.start(simulated);
            window.goToPage(largestPage->id);
            window.grabFramebuffer(); // drawn
        });
    }
    char what[120];
    std::snprintf(what, sizeof what, "open and draw \"%s\" of %s (%d components)",
                  qPrintable(largestPage->title), qPrintable(largest->name),
                  int(largestPage->elements.size()));
    open.print(what);

    const DeviceDefinitions forty = visibilityPage();
    InstantLink link;
    WidgetLxBusConfig window(deviceFor(forty.devices().first()), &link, &prompter);
    window.resize(380, 640);
    window.show();
    window.start(forty);
    window.grabFramebuffer();
    Timing update;
    Timing updateDrawn;
    for (int r = 0; r < runs * 20; ++r)
        update.add([&] { link.answer(); });
    for (int r = 0; r < runs; ++r) {
        updateDrawn.add([&] {
            link.answer();
            window.grabFramebuffer();
        });
    }
    update.print("one update, 40 visibility expressions");
    updateDrawn.print("... and the page drawn again");
    return 0;
}

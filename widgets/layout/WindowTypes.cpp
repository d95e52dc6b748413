#include "widgets/layout/WindowTypes.h"

namespace {
struct TypeInfo
{
    const char *key;
    const char *title;
    const char *icon; // empty: no icon
};

// The sensor list shows the bus icon; the values window has none of its own.
const TypeInfo kTypes[WindowTypes::Count] = {
    {"Models", QT_TRANSLATE_NOOP("WindowTypes", "Model selection"), "modelselect.png"},
    {"Graph", QT_TRANSLATE_NOOP("WindowTypes", "Chart"), "chart16x16.png"},
    {"Maps", QT_TRANSLATE_NOOP("WindowTypes", "GPS map"), "globe16x16.png"},
    {"Sensors", QT_TRANSLATE_NOOP("WindowTypes", "Available telemetry"), "lx.png"},
    {"LXBusDevices", QT_TRANSLATE_NOOP("WindowTypes", "Device Explorer"), "dev_explorer.png"},
    {"RSS", QT_TRANSLATE_NOOP("WindowTypes", "Vexo RSS reader"), "rss16x16.png"},
    {"Values", QT_TRANSLATE_NOOP("WindowTypes", "Actual values"), ""},
    {"DataTable", QT_TRANSLATE_NOOP("WindowTypes", "Data table"), "table16x16.png"},
    {"Dial", QT_TRANSLATE_NOOP("WindowTypes", "Dial"), "dial.png"},
};
} // namespace

QString WindowTypes::key(int code)
{
    return isValid(code) ? QString::fromLatin1(kTypes[code].key) : QString();
}

QString WindowTypes::title(int code)
{
    return isValid(code) ? tr(kTypes[code].title) : QString();
}

QString WindowTypes::iconPath(int code)
{
    if (!isValid(code) || !*kTypes[code].icon)
        return QString();
    return QStringLiteral(":/Icons/Program/Resources/") + QLatin1String(kTypes[code].icon);
}

QIcon WindowTypes::icon(int code)
{
    const QString path = iconPath(code);
    return path.isEmpty() ? QIcon() : QIcon(path);
}

int WindowTypes::codeOf(const QString &key)
{
    for (int code = 0; code < Count; ++code) {
        if (key.compare(QLatin1String(kTypes[code].key), Qt::CaseInsensitive) == 0)
            return code;
    }
    return -1;
}

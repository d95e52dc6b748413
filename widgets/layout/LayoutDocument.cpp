#include "widgets/layout/LayoutDocument.h"

#include "widgets/layout/LayoutJsonReader.h"

namespace {
bool setError(QString *error, const QString &text)
{
    if (error)
        *error = text;
    return false;
}
} // namespace

bool LayoutDocument::parse(const QByteArray &text, LayoutJsonValue *root, QString *error)
{
    LayoutJsonReader reader;
    LayoutJsonValue document;
    if (!reader.parse(text, &document))
        return setError(error, reader.errorString());
    if (!document.isObject())
        return setError(error, tr("The layout is not a JSON object."));

    int count = 0;
    const LayoutJsonValue &main = document.value(QStringLiteral("Main-Container"));
    if (main.isUndefined())
        return setError(error, tr("The layout has no \"Main-Container\"."));
    if (!checkContainer(main, QStringLiteral("Main-Container"), 1, &count, error))
        return false;

    const LayoutJsonValue &floating = document.value(QStringLiteral("Container"));
    if (!floating.isUndefined()) {
        if (!floating.isArray())
            return setError(error, tr("\"Container\" is not a list of windows."));
        if (floating.size() > kMaxFloating)
            return setError(error, tr("The layout has %1 floating windows, more than %2.")
                                       .arg(floating.size())
                                       .arg(kMaxFloating));
        for (int i = 0; i < floating.size(); ++i) {
            const QString where = QStringLiteral("Container[%1]").arg(i);
            const LayoutJsonValue &window = floating.at(i);
            if (!window.isObject())
                return setError(error, tr("%1 is not an object.").arg(where));
            for (const char *key : {"Width", "Height"}) {
                const LayoutJsonValue &v = window.value(QLatin1String(key));
                if (!v.isUndefined() && !checkNumber(v, 0, kMaxPixels, where + QLatin1Char('.') + key, error))
                    return false;
            }
            for (const char *key : {"X", "Y"}) {
                const LayoutJsonValue &v = window.value(QLatin1String(key));
                if (!v.isUndefined() &&
                    !checkNumber(v, -kMaxPixels, kMaxPixels, where + QLatin1Char('.') + key, error))
                    return false;
            }
            const LayoutJsonValue &data = window.value(QStringLiteral("Container-Data"));
            if (data.isUndefined())
                return setError(error, tr("%1 has no \"Container-Data\".").arg(where));
            if (!checkContainer(data, where + QStringLiteral(".Container-Data"), 1, &count, error))
                return false;
        }
    }
    *root = document;
    return true;
}

bool LayoutDocument::isContainerType(const LayoutJsonValue &object)
{
    const LayoutJsonValue &type = object.value(QStringLiteral("Type"));
    return type.isString() && type.toString().compare(QLatin1String("Container"), Qt::CaseInsensitive) == 0;
}

bool LayoutDocument::checkContainer(const LayoutJsonValue &container, const QString &where, int depth,
                                    int *count, QString *error)
{
    if (!container.isObject())
        return setError(error, tr("%1 is not an object.").arg(where));
    if (!isContainerType(container)) {
        const LayoutJsonValue &type = container.value(QStringLiteral("Type"));
        if (type.isUndefined())
            return setError(error, tr("%1 has no \"Type\"; a container was expected.").arg(where));
        return setError(
            error,
            tr("%1 has the type %2; a container was expected.").arg(where, QString::fromUtf8(type.text())));
    }
    if (depth > kMaxContainerDepth)
        return setError(error, tr("Containers are nested deeper than %1 levels.").arg(kMaxContainerDepth));
    if (++*count > kMaxContainers)
        return setError(error, tr("The layout has more than %1 containers.").arg(kMaxContainers));

    const LayoutJsonValue &items = container.value(QStringLiteral("Items"));
    if (!items.isUndefined()) {
        if (!items.isArray())
            return setError(error, tr("%1.Items is not a list.").arg(where));
        if (items.size() > kMaxItems)
            return setError(
                error, tr("%1 holds %2 items, more than %3.").arg(where).arg(items.size()).arg(kMaxItems));
        for (int i = 0; i < items.size(); ++i) {
            const LayoutJsonValue &item = items.at(i);
            // Anything but a container is a window's own business (or skipped when unknown).
            if (item.isObject() && isContainerType(item) &&
                !checkContainer(item, QStringLiteral("%1.Items[%2]").arg(where).arg(i), depth + 1, count,
                                error))
                return false;
        }
    }

    const LayoutJsonValue &sizes = container.value(QStringLiteral("Sizes"));
    if (!sizes.isUndefined()) {
        if (!sizes.isArray())
            return setError(error, tr("%1.Sizes is not a list.").arg(where));
        if (sizes.size() > kMaxItems)
            return setError(error,
                            tr("%1 has %2 sizes, more than %3.").arg(where).arg(sizes.size()).arg(kMaxItems));
        for (int i = 0; i < sizes.size(); ++i) {
            if (!checkNumber(sizes.at(i), 0, kMaxPixels, QStringLiteral("%1.Sizes[%2]").arg(where).arg(i),
                             error))
                return false;
        }
    }
    return true;
}

bool LayoutDocument::checkNumber(const LayoutJsonValue &value, int minimum, int maximum, const QString &where,
                                 QString *error)
{
    if (!value.isNumber())
        return setError(error, tr("%1 is not a number.").arg(where));
    const double v = value.toDouble();
    if (!(v >= minimum && v <= maximum))
        return setError(error, tr("%1 is %2, outside %3 to %4.")
                                   .arg(where, QString::fromUtf8(value.text()))
                                   .arg(minimum)
                                   .arg(maximum));
    return true;
}

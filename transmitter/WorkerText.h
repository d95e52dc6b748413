#pragma once

#include <QString>

// The error texts of the workers: a bold sentence and, where there is one, the detail as a one-item
// list, as every message box of the program shows them.
namespace WorkerText {

inline QString withDetail(const QString &sentence, const QString &detail)
{
    QString item = detail.toHtmlEscaped();
    item.replace(QLatin1Char('\n'), QLatin1String("<br>"));
    return QStringLiteral("<b>%1</b><ul><li>%2</li></ul>").arg(sentence.toHtmlEscaped(), item);
}

} // namespace WorkerText

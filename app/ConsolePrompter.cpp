#include "app/ConsolePrompter.h"

#include <QTextDocumentFragment>

#include <cstdio>

void ConsolePrompter::say(const QString &title, const QString &text)
{
    const QString plain = QTextDocumentFragment::fromHtml(text).toPlainText().simplified();
    std::fprintf(stderr, "%s: %s\n", qPrintable(title), qPrintable(plain));
}

QMessageBox::StandardButton ConsolePrompter::showBox(QWidget *, QMessageBox::Icon, const QString &title,
                                                     const QString &text,
                                                     QMessageBox::StandardButtons buttons,
                                                     QMessageBox::StandardButton defaultButton)
{
    say(title, text);
    if (defaultButton != QMessageBox::NoButton)
        return defaultButton;
    // The safest answer a box offers.
    for (QMessageBox::StandardButton b : {QMessageBox::Cancel, QMessageBox::No, QMessageBox::Ok})
        if (buttons & b)
            return b;
    return QMessageBox::NoButton;
}

int ConsolePrompter::choose(QWidget *, QMessageBox::Icon, const QString &title, const QString &text,
                            const QStringList &, int defaultIndex)
{
    say(title, text);
    return defaultIndex;
}

QString ConsolePrompter::text(QWidget *, const QString &title, const QString &label, const QString &,
                              bool *ok)
{
    say(title, label);
    if (ok)
        *ok = false;
    return QString();
}

QString ConsolePrompter::openFile(QWidget *, const QString &, const QString &, const QString &)
{
    return QString();
}

QStringList ConsolePrompter::openFiles(QWidget *, const QString &, const QString &, const QString &)
{
    return QStringList();
}

QString ConsolePrompter::saveFile(QWidget *, const QString &, const QString &, const QString &, bool)
{
    return QString();
}

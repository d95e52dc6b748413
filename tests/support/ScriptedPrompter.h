#pragma once

#include "widgets/layout/Prompter.h"

#include <QList>
#include <QQueue>

// The test double of the prompter: records every question and message, answers from a script (then the
// fallback). Nothing is shown. Header-only, so only the tests that use windows link the frame.
class ScriptedPrompter : public Prompter
{
public:
    struct Asked
    {
        QString kind; // "information", "warning", "error", "question", "text", "open", "openFiles", "save"
        QString title;
        QString text;
        QMessageBox::StandardButtons buttons;
        QMessageBox::StandardButton defaultButton = QMessageBox::NoButton;
    };

    QList<Asked> asked;
    QQueue<QMessageBox::StandardButton> buttons; // answers to questions, in order
    QMessageBox::StandardButton fallbackButton = QMessageBox::Yes;
    QQueue<QString> texts; // answers to text and file dialogs; empty: cancelled
    QQueue<QStringList> fileLists;

    // The one box or question shown, as "kind|title|text"; empty unless exactly one was.
    QString only() const
    {
        return asked.size() == 1
                   ? asked[0].kind + QLatin1Char('|') + asked[0].title + QLatin1Char('|') + asked[0].text
                   : QString();
    }

    QStringList textsOf(const QString &kind) const
    {
        QStringList out;
        for (const Asked &a : asked) {
            if (a.kind == kind)
                out << a.text;
        }
        return out;
    }

    QQueue<int> choices; // answers to choose(); empty: the default button
    int choose(QWidget *, QMessageBox::Icon, const QString &title, const QString &text,
               const QStringList &labels, int defaultIndex) override
    {
        asked.append({QStringLiteral("choose"),
                      title,
                      text + QStringLiteral(" [") + labels.join(QLatin1Char('|')) + QLatin1Char(']'),
                      {},
                      QMessageBox::NoButton});
        return choices.isEmpty() ? defaultIndex : choices.dequeue();
    }
    QString text(QWidget *, const QString &title, const QString &label, const QString &value,
                 bool *ok) override
    {
        asked.append({QStringLiteral("text"), title, label, {}, QMessageBox::NoButton});
        const bool answered = !texts.isEmpty();
        if (ok)
            *ok = answered;
        return answered ? texts.dequeue() : value;
    }
    QString openFile(QWidget *, const QString &title, const QString &folder, const QString &) override
    {
        asked.append({QStringLiteral("open"), title, folder, {}, QMessageBox::NoButton});
        return texts.isEmpty() ? QString() : texts.dequeue();
    }
    QStringList openFiles(QWidget *, const QString &title, const QString &folder, const QString &) override
    {
        asked.append({QStringLiteral("openFiles"), title, folder, {}, QMessageBox::NoButton});
        return fileLists.isEmpty() ? QStringList() : fileLists.dequeue();
    }
    QString saveFile(QWidget *, const QString &title, const QString &path, const QString &,
                     bool = true) override
    {
        asked.append({QStringLiteral("save"), title, path, {}, QMessageBox::NoButton});
        return texts.isEmpty() ? QString() : texts.dequeue();
    }

protected:
    QMessageBox::StandardButton showBox(QWidget *, QMessageBox::Icon icon, const QString &title,
                                        const QString &text, QMessageBox::StandardButtons choices,
                                        QMessageBox::StandardButton defaultButton) override
    {
        static const char *const kinds[] = {"none", "information", "warning", "error", "question"};
        asked.append({QLatin1String(kinds[int(icon)]), title, text, choices, defaultButton});
        if (icon != QMessageBox::Question)
            return QMessageBox::Ok;
        return buttons.isEmpty() ? fallbackButton : buttons.dequeue();
    }
};

#pragma once

#include <QCoreApplication>
#include <QMessageBox>
#include <QString>
#include <QStringList>

class QWidget;

// The one way the studio asks or tells the user something: message boxes, questions and file dialogs.
// Windows and dialogs never call QMessageBox or QFileDialog themselves, so a test can hand in a prompter
// that records what was asked and answers from a script (tests/support/ScriptedPrompter.h).
// Message texts are rich text, as the boxes show them.
class Prompter
{
    Q_DECLARE_TR_FUNCTIONS(Prompter)
public:
    virtual ~Prompter() = default;

    virtual void information(QWidget *parent, const QString &title, const QString &text);
    virtual void warning(QWidget *parent, const QString &title, const QString &text);
    virtual void error(QWidget *parent, const QString &title, const QString &text);
    // The button chosen; defaultButton is what Enter picks (NoButton: the box decides).
    virtual QMessageBox::StandardButton
    question(QWidget *parent, const QString &title, const QString &text,
             QMessageBox::StandardButtons buttons = QMessageBox::Yes | QMessageBox::No,
             QMessageBox::StandardButton defaultButton = QMessageBox::NoButton);
    // A box with buttons of its own (texts), for choices no standard button names; the index of the
    // button chosen, -1 when the box was closed otherwise. The last button is the one Esc picks.
    virtual int choose(QWidget *parent, QMessageBox::Icon icon, const QString &title, const QString &text,
                       const QStringList &buttons, int defaultIndex = 0);
    // A single line of text; ok false when cancelled.
    virtual QString text(QWidget *parent, const QString &title, const QString &label, const QString &value,
                         bool *ok);
    // File dialogs: an empty result (or list) when cancelled.
    virtual QString openFile(QWidget *parent, const QString &title, const QString &folder,
                             const QString &filter);
    virtual QStringList openFiles(QWidget *parent, const QString &title, const QString &folder,
                                  const QString &filter);
    // confirmOverwrite false: the caller asks before replacing a file itself, so the dialog does not.
    virtual QString saveFile(QWidget *parent, const QString &title, const QString &path,
                             const QString &filter, bool confirmOverwrite = true);

    // "yes" for a Yes/No question whose safe answer is No.
    bool confirm(QWidget *parent, const QString &title, const QString &text);
    // The prompter that shows real dialogs; what a window uses until it is given another.
    static Prompter *standard();

protected:
    // Every box goes through here, so a subclass can change how boxes are shown in one place.
    virtual QMessageBox::StandardButton showBox(QWidget *parent, QMessageBox::Icon icon, const QString &title,
                                                const QString &text, QMessageBox::StandardButtons buttons,
                                                QMessageBox::StandardButton defaultButton);
};

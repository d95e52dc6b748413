#include "transmitter/ui/TransmitterTools.h"

#include "transmitter/RestoreJournal.h"
#include "transmitter/ui/TransmitterWizard.h"
#include "widgets/layout/Prompter.h"

#include <QDebug>

TransmitterTools::TransmitterTools(Source source, DatabaseManager *database, PrompterSource prompter,
                                   QWidget *window, QObject *parent)
    : QObject(parent), m_source(std::move(source)), m_database(database), m_prompter(std::move(prompter)),
      m_window(window)
{
}

Prompter *TransmitterTools::prompter() const
{
    Prompter *p = m_prompter ? m_prompter() : nullptr;
    return p ? p : Prompter::standard();
}

bool TransmitterTools::chooseTransmitter(TransmitterInfo *chosen)
{
    const TransmitterInfoVector found = m_source ? m_source() : TransmitterInfoVector();
    if (found.isEmpty()) {
        prompter()->information(m_window, tr("Transmitter Wizard"),
                                tr("<b>No transmitter found.</b><ul><li>Connect your HC/HS transmitter by "
                                   "USB and try again.</li></ul>"));
        return false;
    }
    if (found.size() == 1) {
        *chosen = found.first();
        return true;
    }
    QStringList buttons;
    for (const TransmitterInfo &t : found)
        buttons << tr("%1 (%2)").arg(t.modelName, t.rootPath);
    buttons << tr("Cancel");
    const int pick = prompter()->choose(m_window, QMessageBox::Question, tr("Transmitter Wizard"),
                                        tr("More than one transmitter is connected. Which one do you want "
                                           "to work with?"),
                                        buttons, 0);
    if (pick < 0 || pick >= found.size())
        return false;
    *chosen = found.at(pick);
    return true;
}

TransmitterWizard *TransmitterTools::createWizard(const TransmitterInfo &transmitter)
{
    auto *wizard = new TransmitterWizard(transmitter, m_database, prompter(), m_window);
    wizard->setAttribute(Qt::WA_DeleteOnClose);
    connect(wizard, &TransmitterWizard::logsSynchronized, this, &TransmitterTools::logsSynchronized);
    m_wizard = wizard;
    return wizard;
}

void TransmitterTools::openWizard()
{
    if (m_wizard) {
        m_wizard->raise();
        return;
    }
    TransmitterInfo chosen;
    if (!chooseTransmitter(&chosen))
        return;
    createWizard(chosen)->exec();
}

void TransmitterTools::onTransmitterAdded(const TransmitterInfo &transmitter)
{
    if (m_wizard)
        m_wizard->onTransmitterAdded(transmitter);
    offerRepair(transmitter.rootPath);
}

void TransmitterTools::onTransmitterRemoved(const QString &rootPath)
{
    if (m_wizard)
        m_wizard->onTransmitterRemoved(rootPath);
}

int TransmitterTools::offerRepair(const QString &rootPath)
{
    const QList<RestoreJournal::Leftover> leftovers = RestoreJournal::find(rootPath);
    for (const RestoreJournal::Leftover &l : leftovers) {
        const QString path = (rootPath + QLatin1Char('/') + l.path).toHtmlEscaped();
        int pick = 1;
        if (l.canFinish()) {
            // The old file is the safe answer, so it is what closing the box picks.
            pick = prompter()->choose(
                m_window, QMessageBox::Question, tr("Interrupted recovery"),
                tr("<b>A recovery of the transmitter was interrupted.</b><ul><li>%1</li></ul>Finish the "
                   "recovery of this file with the backup's copy, or roll back to the previous file?")
                    .arg(path),
                {tr("Finish recovery"), tr("Roll back")}, 0);
        } else {
            // Its new copy may have been cut short: only the previous file can be trusted.
            prompter()->choose(m_window, QMessageBox::Warning, tr("Interrupted recovery"),
                               tr("<b>A recovery of the transmitter was interrupted while this file was "
                                  "written.</b><ul><li>%1</li></ul>The unfinished copy is removed and the "
                                  "previous file kept. Recover the transmitter again to restore it.")
                                   .arg(path),
                               {tr("Roll back")}, 0);
        }
        QString error;
        const bool ok = pick == 0 ? RestoreJournal::finish(rootPath, l, &error)
                                  : RestoreJournal::rollBack(rootPath, l, &error);
        if (!ok)
            prompter()->error(
                m_window, tr("Error"),
                tr("<b>Unable to repair the file:</b><ul><li>%1</li></ul>").arg(error.toHtmlEscaped()));
    }
    return leftovers.size();
}

#pragma once

#include "link/TransmitterInfo.h"

#include <QObject>
#include <QPointer>

#include <functional>

class DatabaseManager;
class Prompter;
class QWidget;
class TransmitterWizard;

// What the studio does with detected transmitters: opens the wizard for one (asking which when there are
// several), tells an open wizard when its drive goes or comes back, and offers to complete or undo a
// recovery that was interrupted on a drive that is plugged in.
class TransmitterTools : public QObject
{
    Q_OBJECT
public:
    using Source = std::function<TransmitterInfoVector()>;
    // The prompter of the moment (the window's may be replaced, as tests do).
    using PrompterSource = std::function<Prompter *()>;

    // source: the transmitters detected now; window: the parent of boxes and the wizard.
    TransmitterTools(Source source, DatabaseManager *database, PrompterSource prompter, QWidget *window,
                     QObject *parent = nullptr);

    // The transmitter to work with: the only one, or the one the user picks; false when there is none
    // (after saying so) or the choice was cancelled.
    bool chooseTransmitter(TransmitterInfo *chosen);
    TransmitterWizard *createWizard(const TransmitterInfo &transmitter);
    // Leftovers of interrupted recoveries below the drive, each finished or rolled back as the user says.
    // The number handled.
    int offerRepair(const QString &rootPath);

signals:
    // A synchronisation in the wizard stored logs: the models views should read the database again.
    void logsSynchronized();

public slots:
    void openWizard();
    void onTransmitterAdded(const TransmitterInfo &transmitter);
    void onTransmitterRemoved(const QString &rootPath);

private:
    Prompter *prompter() const;

    Source m_source;
    DatabaseManager *m_database;
    PrompterSource m_prompter;
    QWidget *m_window;
    QPointer<TransmitterWizard> m_wizard;
};

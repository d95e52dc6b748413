#include "transmitter/ui/IntroPage.h"

#include "transmitter/ui/TransmitterWizard.h"

#include <QLabel>
#include <QListWidget>
#include <QVBoxLayout>

namespace {
struct Tool
{
    const char *icon;
    const char *title;
    const char *description;
    int page;
};
// In the order the page lists them.
const Tool kTools[] = {
    {"backup32x32.png", QT_TRANSLATE_NOOP("IntroPage", "Transmitter Backup"),
     QT_TRANSLATE_NOOP("IntroPage", "Helps you to create a backup of your transmitter."),
     TransmitterWizard::BackupIntroId},
    {"backups32x32.png", QT_TRANSLATE_NOOP("IntroPage", "View backups"),
     QT_TRANSLATE_NOOP("IntroPage", "Browse and remove transmitter backups in database."),
     TransmitterWizard::ManageBackupsId},
    {"apps32x32.png", QT_TRANSLATE_NOOP("IntroPage", "Lua App Manager"),
     QT_TRANSLATE_NOOP("IntroPage", "Manage Lua applications in your HC/HS transmitter."),
     TransmitterWizard::AppManagerId},
    {"update32x32.png", QT_TRANSLATE_NOOP("IntroPage", "Transmitter Update"),
     QT_TRANSLATE_NOOP("IntroPage", "Update your transmitter to the latest version."),
     TransmitterWizard::UpdateIntroId},
    {"sync32x32.png", QT_TRANSLATE_NOOP("IntroPage", "Synchronize log files"),
     QT_TRANSLATE_NOOP("IntroPage", "Synchronize the transmitter log files with Vexo Studio."),
     TransmitterWizard::SyncIntroId},
    {"restore32x32.png", QT_TRANSLATE_NOOP("IntroPage", "Recover the Transmitter"),
     QT_TRANSLATE_NOOP("IntroPage", "Helps you to restore your transmitter from a backup."),
     TransmitterWizard::RestoreIntroId},
};
constexpr int kPageRole = Qt::UserRole + 1;
} // namespace

IntroPage::IntroPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Vexo Transmitter Wizard"));
    setSubTitle(tr("Choose what you want to do with your transmitter."));
    m_tools = new QListWidget;
    m_tools->setIconSize(QSize(32, 32));
    m_tools->setSpacing(2);
    for (const Tool &t : kTools) {
        const QString title = tr(t.title);
        auto *item =
            new QListWidgetItem(QIcon(QStringLiteral(":/Icons/Transmitter/") + QLatin1String(t.icon)),
                                title + QLatin1Char('\n') + tr(t.description));
        item->setData(Qt::UserRole, title);
        item->setData(kPageRole, t.page);
        m_tools->addItem(item);
    }
    m_tools->setCurrentRow(0);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tools);
    connect(m_tools, &QListWidget::currentRowChanged, this, &QWizardPage::completeChanged);
    connect(m_tools, &QListWidget::itemDoubleClicked, this, [this] {
        if (wizard())
            wizard()->next();
    });
}

bool IntroPage::isComplete() const
{
    return m_tools->currentItem() != nullptr;
}

int IntroPage::nextId() const
{
    const QListWidgetItem *item = m_tools->currentItem();
    if (!item)
        return -1;
    const int page = item->data(kPageRole).toInt();
    if (page == TransmitterWizard::NotAvailableId) {
        // nextId() is const by contract; the wizard only remembers which tool to name.
        if (auto *w = qobject_cast<TransmitterWizard *>(wizard()))
            w->setUnavailableTool(item->data(Qt::UserRole).toString());
    }
    return page;
}

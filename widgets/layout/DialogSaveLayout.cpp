#include "widgets/layout/DialogSaveLayout.h"

#include "database/DatabaseManager.h"
#include "widgets/layout/Prompter.h"
#include "widgets/layout/WidgetContainer.h"
#include "widgets/layout/WidgetManager.h"

#include <QBuffer>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QVBoxLayout>

namespace {
constexpr int kScreenshotWidth = 320;
}

DialogSaveLayout::DialogSaveLayout(WidgetManager *manager, Prompter *prompter, QWidget *parent)
    : QDialog(parent), m_manager(manager), m_prompter(prompter ? prompter : Prompter::standard()),
      m_list(new QListWidget(this)), m_name(new QLineEdit(this)), m_description(new QPlainTextEdit(this))
{
    setWindowTitle(tr("Save layout"));
    m_list->setObjectName(QStringLiteral("layoutList"));
    m_name->setObjectName(QStringLiteral("name"));
    m_description->setObjectName(QStringLiteral("description"));
    m_description->setTabChangesFocus(true);

    auto *form = new QFormLayout;
    form->addRow(tr("Name:"), m_name);
    form->addRow(tr("Description:"), m_description);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &DialogSaveLayout::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &DialogSaveLayout::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Existing layouts:"), this));
    layout->addWidget(m_list, 1);
    layout->addLayout(form);
    layout->addWidget(buttons);

    // Picking an existing layout starts from its name and description.
    connect(m_list, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row < 0)
            return;
        m_name->setText(m_list->item(row)->data(Qt::UserRole).toString());
        m_description->setPlainText(m_list->item(row)->data(Qt::UserRole + 1).toString());
    });
    fillList();
}

void DialogSaveLayout::fillList()
{
    DatabaseManager *db = m_manager->database();
    if (!db)
        return;
    const QVector<DatabaseManager::LayoutRow> rows = db->layouts();
    for (const DatabaseManager::LayoutRow &row : rows) {
        auto *item = new QListWidgetItem(m_list);
        item->setData(Qt::UserRole, row.name);
        item->setData(Qt::UserRole + 1, row.description);
        auto *label = new QLabel(QStringLiteral("<b>%1</b><br>").arg(row.name.toHtmlEscaped()) +
                                     tr("Date: %1<br>%2")
                                         .arg(row.dateCreated.toString(QStringLiteral("d-M-yyyy")),
                                              row.description.toHtmlEscaped()),
                                 m_list);
        label->setTextFormat(Qt::RichText);
        label->setMargin(2);
        item->setSizeHint(label->sizeHint());
        m_list->setItemWidget(item, label);
    }
}

QByteArray DialogSaveLayout::screenshot() const
{
    QWidget *root = m_manager->rootWidget();
    if (!root || root->width() <= 0 || root->height() <= 0)
        return QByteArray();
    QPixmap picture = root->grab();
    if (picture.width() > kScreenshotWidth)
        picture = picture.scaledToWidth(kScreenshotWidth, Qt::SmoothTransformation);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, "PNG");
    return bytes;
}

void DialogSaveLayout::accept()
{
    const QString name = m_name->text().trimmed();
    if (name.isEmpty()) {
        m_prompter->information(this, tr("Info"), tr("Please set the layout name"));
        return;
    }
    DatabaseManager *db = m_manager->database();
    const int id =
        db ? db->insertLayout(name, m_description->toPlainText(), m_manager->saveLayout(), screenshot()) : -1;
    if (id < 0) {
        const QString reason = db ? db->lastError() : tr("No database is open.");
        m_prompter->error(
            this, tr("Layout error"),
            tr("<b>Unable to save layout:</b><ul><li>%1</li></ul>").arg(reason.toHtmlEscaped()));
        return;
    }
    m_savedId = id;
    QDialog::accept();
}

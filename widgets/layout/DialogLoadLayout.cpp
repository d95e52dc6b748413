#include "widgets/layout/DialogLoadLayout.h"

#include "widgets/layout/Prompter.h"
#include "widgets/layout/WidgetManager.h"

#include <QDialogButtonBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

DialogLoadLayout::DialogLoadLayout(WidgetManager *manager, Prompter *prompter, QWidget *parent)
    : QDialog(parent), m_manager(manager), m_prompter(prompter ? prompter : Prompter::standard()),
      m_list(new QListWidget(this)), m_description(new QLabel(this)),
      m_delete(new QPushButton(tr("Delete layout"), this)),
      m_buttons(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this))
{
    setWindowTitle(tr("Select layout"));
    m_list->setObjectName(QStringLiteral("layoutList"));
    m_description->setObjectName(QStringLiteral("description"));
    m_description->setTextFormat(Qt::RichText);
    m_description->setWordWrap(true);
    m_description->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    m_description->setMinimumWidth(200);

    auto *group = new QGroupBox(tr("Select layout from the list"), this);
    auto *columns = new QHBoxLayout(group);
    columns->addWidget(m_list, 1);
    auto *side = new QVBoxLayout;
    side->addWidget(m_description, 1);
    side->addWidget(m_delete);
    columns->addLayout(side);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(group, 1);
    layout->addWidget(m_buttons);

    connect(m_buttons, &QDialogButtonBox::accepted, this, &DialogLoadLayout::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &DialogLoadLayout::reject);
    connect(m_delete, &QPushButton::clicked, this, &DialogLoadLayout::deletePressed);
    connect(m_list, &QListWidget::currentRowChanged, this, &DialogLoadLayout::rowChanged);
    connect(m_list, &QListWidget::itemDoubleClicked, this, &DialogLoadLayout::accept);
    fillList();
    rowChanged(m_list->currentRow());
}

void DialogLoadLayout::fillList()
{
    DatabaseManager *db = m_manager->database();
    if (!db)
        return;
    bool ok = false;
    m_rows = db->layouts(&ok);
    if (!ok) {
        m_prompter->error(
            this, tr("Layout error"),
            tr("<b>Unable to load layout:</b><ul><li>%1</li></ul>").arg(db->lastError().toHtmlEscaped()));
        return;
    }
    for (const DatabaseManager::LayoutRow &row : qAsConst(m_rows))
        m_list->addItem(row.name);
}

void DialogLoadLayout::rowChanged(int row)
{
    const bool valid = row >= 0 && row < m_rows.size();
    m_delete->setEnabled(valid);
    m_buttons->button(QDialogButtonBox::Ok)->setEnabled(valid);
    if (!valid) {
        m_description->clear();
        return;
    }
    const DatabaseManager::LayoutRow &layout = m_rows.at(row);
    m_description->setText(tr("<b>%1</b><br>%2<br><br><i>Created: %3</i>")
                               .arg(layout.name.toHtmlEscaped(), layout.description.toHtmlEscaped(),
                                    layout.dateCreated.toString(QStringLiteral("d-M-yyyy"))));
}

void DialogLoadLayout::deletePressed()
{
    const int row = m_list->currentRow();
    DatabaseManager *db = m_manager->database();
    if (row < 0 || row >= m_rows.size() || !db)
        return;
    // Enter must not delete: No is the default.
    if (!m_prompter->confirm(this, tr("Confirmation"), tr("Really delete layout?")))
        return;
    if (!db->deleteLayout(m_rows.at(row).id)) {
        m_prompter->error(
            this, tr("Layout error"),
            tr("<b>Unable to delete layout:</b><ul><li>%1</li></ul>").arg(db->lastError().toHtmlEscaped()));
        return;
    }
    m_rows.removeAt(row);
    delete m_list->takeItem(row);
    rowChanged(m_list->currentRow());
}

void DialogLoadLayout::accept()
{
    const int row = m_list->currentRow();
    if (row < 0 || row >= m_rows.size())
        return;
    // A layout that cannot be loaded leaves the current one and the dialog open.
    if (m_manager->loadStoredLayout(m_rows.at(row).data, this))
        QDialog::accept();
}

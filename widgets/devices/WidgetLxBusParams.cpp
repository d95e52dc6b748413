#include "widgets/devices/WidgetLxBusParams.h"

#include "widgets/devices/LxBusTableModel.h"
#include "widgets/devices/LxBusValueDelegate.h"
#include "widgets/layout/Prompter.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QIcon>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

WidgetLxBusParams::WidgetLxBusParams(const Device &device, DeviceParamLink *link, Prompter *prompter,
                                     QWidget *parent)
    : QDialog(parent), m_session(new DeviceSession(device, link, prompter, this))
{
    setWindowTitle(tr("LX Bus Device Properties: %1").arg(device.name));
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    setWindowFlag(Qt::WindowMaximizeButtonHint, true);
    m_table = new QTableView(this);
    m_table->setModel(m_session->model());
    m_table->setItemDelegateForColumn(LxBusTableModel::ValueColumn, new LxBusValueDelegate(m_table));
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                             QAbstractItemView::AnyKeyPressed);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setStretchLastSection(false);
    m_table->horizontalHeader()->setSectionResizeMode(LxBusTableModel::DescriptionColumn,
                                                      QHeaderView::Stretch);

    m_progress = new QProgressBar(this);
    m_progress->setRange(0, 100);
    m_progress->setValue(0);
    m_progress->setFormat(tr("%p% read"));
    m_progress->setMinimumWidth(120);
    m_status = new QLabel(this);
    m_exportButton = new QPushButton(QIcon(QStringLiteral(":/Icons/Program/Resources/export16x16.png")),
                                     tr("Export settings to file..."), this);
    m_importButton = new QPushButton(QIcon(QStringLiteral(":/Icons/Program/Resources/import16x16.png")),
                                     tr("Import settings from file..."), this);
    // The buttons must not take Enter from the table's editors.
    m_exportButton->setAutoDefault(false);
    m_importButton->setAutoDefault(false);
    connect(m_exportButton, &QPushButton::clicked, this, [this] { exportSettings(); });
    connect(m_importButton, &QPushButton::clicked, this, [this] { importSettings(); });

    auto *bar = new QHBoxLayout;
    bar->addWidget(m_exportButton);
    bar->addWidget(m_importButton);
    bar->addWidget(m_status, 1);
    bar->addWidget(m_progress);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_table);
    layout->addLayout(bar);
    resize(760, 520);

    connect(m_session, &DeviceSession::valuesLoaded, m_progress, &QProgressBar::setValue);
    connect(m_session, &DeviceSession::statusChanged, m_status, &QLabel::setText);
    connect(m_session, &DeviceSession::writeRefused, this, [this](const QStringList &reasons) {
        QString items;
        for (const QString &r : reasons)
            items += QStringLiteral("<li>%1</li>").arg(r.toHtmlEscaped());
        m_session->prompter()->warning(this, tr("Device error"),
                                       tr("<b>Unable to write to the device:</b><ul>%1</ul>").arg(items));
    });
    connect(m_session, &DeviceSession::failed, this, [this](const QString &text) {
        m_session->prompter()->warning(
            this, tr("Device error"),
            tr("<b>Unable to write to the device:</b><ul><li>%1</li></ul>").arg(text.toHtmlEscaped()));
    });
}

bool WidgetLxBusParams::start(const QString &definitionsPath)
{
    return started(m_session->start(definitionsPath));
}

bool WidgetLxBusParams::start(const DeviceDefinitions &definitions)
{
    return started(m_session->start(definitions));
}

bool WidgetLxBusParams::started(bool ok)
{
    if (ok) {
        m_table->resizeColumnToContents(LxBusTableModel::PropertiesColumn);
        m_progress->setValue(m_session->model()->settings().loadedPercent());
    }
    return ok;
}

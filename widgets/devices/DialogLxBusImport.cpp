#include "widgets/devices/DialogLxBusImport.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

using DiffRow = DeviceSettingsFile::DiffRow;

DialogLxBusImport::DialogLxBusImport(const QVector<DiffRow> &rows, QWidget *parent)
    : QDialog(parent), m_rows(listed(rows))
{
    setWindowTitle(tr("Import settings"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(m_rows.isEmpty() ? tr("The device already holds every value of the file.")
                                                  : tr("Choose the values to write to the device:"),
                                 this));
    m_list = new QTreeWidget(this);
    m_list->setRootIsDecorated(false);
    m_list->setHeaderLabels({tr("Parameter"), tr("Device"), tr("File"), tr("Note")});
    for (const DiffRow &row : m_rows) {
        auto *item = new QTreeWidgetItem(m_list);
        item->setText(NameColumn, row.name.isEmpty() ? tr("Address %1").arg(row.address) : row.name);
        item->setText(DeviceColumn,
                      row.side == DiffRow::OnlyInFile ? tr("(not on the device)") : row.deviceText);
        item->setText(FileColumn, row.side == DiffRow::OnlyOnDevice ? tr("(not in the file)") : row.fileText);
        if (row.side == DiffRow::OnlyOnDevice) {
            item->setText(NoteColumn, tr("only on the device"));
        } else if (!row.writable) {
            item->setText(NoteColumn, tr("cannot be written: %1").arg(row.refusal));
        }
        Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
        if (row.writable) {
            flags |= Qt::ItemIsUserCheckable;
            item->setCheckState(NameColumn, row.differs ? Qt::Checked : Qt::Unchecked);
        } else {
            item->setForeground(NameColumn, palette().color(QPalette::Disabled, QPalette::Text));
        }
        item->setFlags(flags);
    }
    m_list->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    layout->addWidget(m_list);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(tr("Write to device"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    resize(640, 420);
}

QVector<DiffRow> DialogLxBusImport::listed(const QVector<DiffRow> &rows)
{
    QVector<DiffRow> out;
    for (const DiffRow &row : rows) {
        if (row.differs || row.side != DiffRow::Both)
            out.append(row);
    }
    return out;
}

QVector<DiffRow> DialogLxBusImport::chosen() const
{
    QVector<DiffRow> out;
    for (int i = 0; i < m_rows.size(); ++i) {
        const QTreeWidgetItem *item = m_list->topLevelItem(i);
        if (m_rows.at(i).writable && item->checkState(NameColumn) == Qt::Checked)
            out.append(m_rows.at(i));
    }
    return out;
}

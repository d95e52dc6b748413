#pragma once

#include "link/DeviceSettingsFile.h"

#include <QDialog>

class QTreeWidget;

// What an import would change, before anything is written: one line per parameter that differs or is on one
// side only, with the device's and the file's value. Lines that can be written carry a tick (set for those
// that differ); the others say why they cannot.
class DialogLxBusImport : public QDialog
{
    Q_OBJECT
public:
    enum Column
    {
        NameColumn,
        DeviceColumn,
        FileColumn,
        NoteColumn
    };

    DialogLxBusImport(const QVector<DeviceSettingsFile::DiffRow> &rows, QWidget *parent = nullptr);

    // The rows the dialog lists: those that differ or are on one side only.
    static QVector<DeviceSettingsFile::DiffRow> listed(const QVector<DeviceSettingsFile::DiffRow> &rows);
    // The ticked rows.
    QVector<DeviceSettingsFile::DiffRow> chosen() const;
    QTreeWidget *list() const { return m_list; }

private:
    QVector<DeviceSettingsFile::DiffRow> m_rows; // as listed, one per top-level item
    QTreeWidget *m_list = nullptr;
};

#pragma once

#include "link/DeviceDefinitions.h"
#include "link/DeviceSettings.h"

#include <QAbstractTableModel>

// Every register of one device as a table: name and address, value, description, size, address. Values are
// edited in place; an accepted edit is not applied here but asked for with writeRequested, and the cell shows
// what the device answers once the write has been read back.
class LxBusTableModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column
    {
        PropertiesColumn,
        ValueColumn,
        DescriptionColumn,
        SizeColumn,
        AddressColumn,
        ColumnCount
    };
    enum Role
    {
        RawRole = Qt::UserRole, // the register value as the number it stands for (qint64)
        MinimumRole,            // limits and decimals for the editor
        MaximumRole,
        DecimalsRole,
        ChoicesRole, // QVariantList of [raw, text] pairs; empty for a plain number
        LoadedRole
    };

    explicit LxBusTableModel(QObject *parent = nullptr);

    // The definition's parameters in address order, none read yet.
    void setDefinition(quint32 deviceId, const DeviceDefinition &definition);
    const DeviceDefinition &definition() const { return m_definition; }
    const DevParamVector &params() const { return m_settings.params; }
    const DeviceSettings &settings() const { return m_settings; }

    // A read answer: values matched by address.
    void setValues(const DevParamVector &params);
    // A write read back: the cells show the device's values again. Returns the parameters the device did
    // not take.
    DevParamVector applyWriteResult(const DevParamVector &params);

    const DeviceParameter *parameterAt(int row) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    // The value column takes RawRole (a raw value) or EditRole (the number as shown). False when the value
    // may not be written; then nothing is asked.
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;

signals:
    void writeRequested(const DevParam &param);

private:
    void updateRow(int row);

    DeviceDefinition m_definition;
    DeviceSettings m_settings;
};

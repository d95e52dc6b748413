#include "app/SerialComboBox.h"

#include <QSerialPortInfo>
#include <QStyle>

#include <algorithm>

SerialComboBox::SerialComboBox(QWidget *parent) : QComboBox(parent)
{
    setSizeAdjustPolicy(QComboBox::AdjustToContentsOnFirstShow);
    setEditable(true); // a path such as /dev/serial/by-id/... can be typed in
    setMinimumWidth(fontMetrics().horizontalAdvance(QStringLiteral("COM99_")) +
                    style()->pixelMetric(QStyle::PM_ComboBoxFrameWidth) * 2 + 24);
    refresh(QString());
}

void SerialComboBox::refresh(const QString &current)
{
    clear();
    addItem(tr("None"));
    QStringList names;
    for (const QSerialPortInfo &info : QSerialPortInfo::availablePorts())
        names << info.portName();
    std::sort(names.begin(), names.end());
    addItems(names);
    if (!current.isEmpty() && findText(current) < 0)
        addItem(current);
    setCurrentIndex(current.isEmpty() ? 0 : findText(current));
}

QString SerialComboBox::port() const
{
    return currentIndex() == 0 && currentText() == itemText(0) ? QString() : currentText().trimmed();
}

#pragma once

#include <QComboBox>

// Port choice: "None" first, then the system's ports by name. Wide enough for "COM99_".
class SerialComboBox : public QComboBox
{
    Q_OBJECT
public:
    explicit SerialComboBox(QWidget *parent = nullptr);
    // Refills the list; a current name that is not present (a by-id path, a link) is kept as an entry.
    void refresh(const QString &current);
    // The chosen port, empty for "None".
    QString port() const;
};

#pragma once

#include "widgets/layout/LayoutJsonValue.h"
#include "widgets/layout/SerializableWidget.h"

#include <QWidget>

class QLabel;

// Stands in for a window type this build cannot show yet. It keeps the object the layout gave it and
// writes it back unchanged, key order and number spelling included, so no layout loses anything by
// passing through this program.
class WidgetPlaceholder : public QWidget, public SerializableWidget
{
    Q_OBJECT
public:
    explicit WidgetPlaceholder(int typeCode, QWidget *parent = nullptr);

    int typeCode() const { return m_typeCode; }
    // The object last given to load(), empty when none.
    QByteArray objectText() const { return m_object.text(); }

    int load(const LayoutJsonValue &object) override;
    int save(LayoutJsonWriter &writer, quint8 flag) override;

    // Keys that bind a window of this type to variables of one model, left out of files.
    static bool isBindingKey(int typeCode, const QString &key);

signals:
    void gotFocus();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;

private:
    int m_typeCode;
    LayoutJsonValue m_object;
    QLabel *m_label;
};

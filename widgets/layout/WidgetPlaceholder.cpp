#include "widgets/layout/WidgetPlaceholder.h"

#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/WindowTypes.h"

#include <QLabel>
#include <QVBoxLayout>

WidgetPlaceholder::WidgetPlaceholder(int typeCode, QWidget *parent)
    : QWidget(parent), m_typeCode(typeCode), m_label(new QLabel(this))
{
    setFocusPolicy(Qt::ClickFocus);
    m_label->setAlignment(Qt::AlignCenter);
    m_label->setWordWrap(true);
    m_label->setTextFormat(Qt::RichText);
    m_label->setText(tr("<b>%1</b><br>This window is not available in this version; its settings are kept.")
                         .arg(WindowTypes::title(typeCode).toHtmlEscaped()));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_label);
}

int WidgetPlaceholder::load(const LayoutJsonValue &object)
{
    if (!object.isObject())
        return 1;
    m_object = object;
    return 0;
}

int WidgetPlaceholder::save(LayoutJsonWriter &writer, quint8 flag)
{
    if (!m_object.isObject()) {
        writer.writeString(QStringLiteral("Type"), WindowTypes::key(m_typeCode));
        return 0;
    }
    if (flag != kForFile) {
        const QByteArray text = m_object.text();
        writer.writeRawMembers(text.mid(1, text.size() - 2));
        return 0;
    }
    for (int i = 0; i < m_object.size(); ++i) {
        const QString key = m_object.keyAt(i);
        if (isBindingKey(m_typeCode, key))
            continue;
        writer.key(key);
        writer.writeRaw(m_object.at(i).text());
    }
    return 0;
}

bool WidgetPlaceholder::isBindingKey(int typeCode, const QString &key)
{
    static const char *const maps[] = {"Sensor-Lat",     "Sensor-Lon",      "Sensor-Valid",
                                       "Sensor-Alti",    "Sensor-Azim",     "RestrictRoute",
                                       "RestrictedTime", "CustomLineColor", "Colors"};
    static const char *const dial[] = {"Sensor", "Param", "Props"};
    const auto listed = [&key](const auto &keys) {
        for (const char *k : keys) {
            if (key.compare(QLatin1String(k), Qt::CaseInsensitive) == 0)
                return true;
        }
        return false;
    };
    switch (typeCode) {
    case WindowTypes::Maps:
        return listed(maps);
    case WindowTypes::Dial:
        return listed(dial);
    case WindowTypes::Values:
        return key.compare(QLatin1String("Sensors"), Qt::CaseInsensitive) == 0;
    case WindowTypes::DataTable:
        // A data table written to a file keeps only its type.
        return key.compare(QLatin1String("Type"), Qt::CaseInsensitive) != 0;
    default:
        return false;
    }
}

void WidgetPlaceholder::mousePressEvent(QMouseEvent *event)
{
    emit gotFocus();
    QWidget::mousePressEvent(event);
}

void WidgetPlaceholder::focusInEvent(QFocusEvent *event)
{
    emit gotFocus();
    QWidget::focusInEvent(event);
}

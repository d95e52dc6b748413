#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <memory>
#include <vector>

// One value of a parsed layout document. Unlike QJsonObject it keeps the members in the order they were
// written and remembers the value's text, so a window that does not know its own keys yet can write its
// object back exactly as it was read.
class LayoutJsonValue
{
public:
    enum Kind
    {
        Undefined,
        Null,
        Bool,
        Number,
        String,
        Array,
        Object
    };

    LayoutJsonValue() = default;

    Kind kind() const { return m_kind; }
    bool isUndefined() const { return m_kind == Undefined; }
    bool isObject() const { return m_kind == Object; }
    bool isArray() const { return m_kind == Array; }
    bool isString() const { return m_kind == String; }
    bool isNumber() const { return m_kind == Number; }
    bool isBool() const { return m_kind == Bool; }

    // Members of an object or elements of an array, in document order.
    int size() const { return int(m_children.size()); }
    const LayoutJsonValue &at(int index) const;
    // The key of member i of an object (empty for arrays).
    QString keyAt(int index) const;
    // An exact key first, then one differing only in case; an undefined value when there is none.
    const LayoutJsonValue &value(const QString &key) const;
    bool contains(const QString &key) const { return !value(key).isUndefined(); }

    double toDouble(double defaultValue = 0) const;
    // The number when it is integral and fits, else defaultValue.
    int toInt(int defaultValue = 0) const;
    QString toString(const QString &defaultValue = QString()) const;
    bool toBool(bool defaultValue = false) const;

    // The value's JSON text without insignificant white space, tokens as they were written.
    QByteArray text() const;
    // For windows that prefer Qt's own JSON classes (key order is lost there).
    QJsonValue toJsonValue() const;
    QJsonObject toJsonObject() const { return toJsonValue().toObject(); }

private:
    friend class LayoutJsonReader;

    Kind m_kind = Undefined;
    std::shared_ptr<const QByteArray> m_text; // the compact text of the whole document
    int m_begin = 0;
    int m_end = 0;
    double m_number = 0;
    bool m_bool = false;
    QString m_string;
    std::vector<QString> m_keys;
    std::vector<LayoutJsonValue> m_children;
};

#pragma once

#include "widgets/layout/LayoutJsonValue.h"

#include <QCoreApplication>
#include <QString>

// Reads a layout document and checks its whole structure before anything is built from it, so a
// damaged or absurd layout is refused as a whole and the current one stays.
class LayoutDocument
{
    Q_DECLARE_TR_FUNCTIONS(LayoutDocument)
public:
    static constexpr int kMaxContainerDepth = 32;
    static constexpr int kMaxItems = 64;        // items (and sizes) of one container
    static constexpr int kMaxContainers = 2048; // in the whole document
    static constexpr int kMaxFloating = 32;     // floating windows
    static constexpr int kMaxPixels = 100000;   // any size or coordinate

    // The parsed root on success; otherwise a reason naming the place of the fault.
    static bool parse(const QByteArray &text, LayoutJsonValue *root, QString *error);
    static bool isContainerType(const LayoutJsonValue &object);

private:
    // Checks one container object and everything below it.
    static bool checkContainer(const LayoutJsonValue &container, const QString &where, int depth, int *count,
                               QString *error);
    static bool checkNumber(const LayoutJsonValue &value, int minimum, int maximum, const QString &where,
                            QString *error);
};

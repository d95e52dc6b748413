#include "widgets/layout/WindowHub.h"

WindowHub::WindowHub(QObject *parent) : QObject(parent) {}

void WindowHub::setCursorPair(const CursorPair &pair)
{
    if (pair == m_cursorPair)
        return;
    m_cursorPair = pair;
    emit cursorPairChanged(pair);
}

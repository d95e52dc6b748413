#include "widgets/layout/WindowHub.h"

WindowHub::WindowHub(QObject *parent) : QObject(parent) {}

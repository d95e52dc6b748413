#include "widgets/WindowHub.h"

WindowHub::WindowHub(QObject *parent) : QObject(parent) {}

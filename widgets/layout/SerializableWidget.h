#pragma once

#include "widgets/layout/Prompter.h"

#include <QtGlobal>

class LayoutJsonReader;
class LayoutJsonValue;
class LayoutJsonWriter;
class TelemetryVar;

// What every data window and every container implements beside its widget class: its part of a layout.
class SerializableWidget
{
public:
    // Values of the save flag.
    static constexpr quint8 kForDatabase = 0; // a model's session, a named layout, copied properties
    static constexpr quint8 kForFile = 1;     // "Save layout as": bindings to particular variables left out

    virtual ~SerializableWidget() = default;
    // Applies the window's own object from a layout; 0 on success.
    virtual int load(const LayoutJsonValue &object) = 0;
    // Writes the window's keys, "Type" first, into the writer's open object; returns 0. With kForFile
    // a window leaves out what binds it to variables of one particular model.
    virtual int save(LayoutJsonWriter &writer, quint8 flag) = 0;

    // A variable double-clicked in the sensor list, for the active window; false for a window that takes
    // none.
    virtual bool addVariable(const TelemetryVar *) { return false; }

    // How the window asks and tells the user; the window manager hands over its own on registration.
    void setPrompter(Prompter *prompter) { m_prompter = prompter; }
    Prompter *prompter() const { return m_prompter ? m_prompter : Prompter::standard(); }

private:
    Prompter *m_prompter = nullptr;
};

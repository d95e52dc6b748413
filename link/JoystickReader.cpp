#include "link/JoystickReader.h"

#include <SDL.h>

#include <array>

namespace {

// The master frame carries eight channels; further axes have nowhere to go.
constexpr int kMaxAxes = 8;

QString guidString(SDL_JoystickGUID guid)
{
    char text[33] = {};
    SDL_JoystickGetGUIDString(guid, text, sizeof text);
    return QString::fromLatin1(text);
}

QString sdlError()
{
    return QString::fromUtf8(SDL_GetError());
}

} // namespace

struct JoystickReader::Private
{
    bool m_initialised = false;
    SDL_Joystick *m_joystick = nullptr;
    QString m_guid;
    QString m_lastError;
    // Values of the last poll; a copy handed out is shared, so an unchanged poll allocates nothing.
    JoystickAxisMap m_last;

    bool ensureInitialised();
    void close();
};

bool JoystickReader::Private::ensureInitialised()
{
    if (m_initialised)
        return true;
    // The reader runs while another window has focus, and Qt, not SDL, owns SIGINT/SIGTERM.
    SDL_SetHint(SDL_HINT_JOYSTICK_ALLOW_BACKGROUND_EVENTS, "1");
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    if (SDL_InitSubSystem(SDL_INIT_JOYSTICK | SDL_INIT_GAMECONTROLLER) != 0) {
        m_lastError = sdlError();
        return false;
    }
    // Nobody drains SDL's event queue (state is read directly), so keep it from filling up.
    SDL_JoystickEventState(SDL_IGNORE);
    SDL_GameControllerEventState(SDL_IGNORE);
    m_initialised = true;
    m_lastError.clear();
    return true;
}

void JoystickReader::Private::close()
{
    if (m_joystick)
        SDL_JoystickClose(m_joystick);
    m_joystick = nullptr;
    m_guid.clear();
    m_last.clear();
}

JoystickReader::JoystickReader() : d(new Private) {}

JoystickReader::~JoystickReader()
{
    d->close();
    if (d->m_initialised)
        SDL_QuitSubSystem(SDL_INIT_JOYSTICK | SDL_INIT_GAMECONTROLLER);
    delete d;
}

JoystickVector JoystickReader::detect()
{
    JoystickVector result;
    if (!d->ensureInitialised())
        return result;
    // Hot-plugged devices only show up after the drivers have been asked again.
    SDL_JoystickUpdate();
    const int count = SDL_NumJoysticks();
    if (count < 0) {
        d->m_lastError = sdlError();
        return result;
    }
    result.reserve(count);
    for (int index = 0; index < count; ++index) {
        JoystickInfo info;
        info.guid = guidString(SDL_JoystickGetDeviceGUID(index));
        info.name = QString::fromUtf8(SDL_JoystickNameForIndex(index));
        info.isGameController = SDL_IsGameController(index) == SDL_TRUE;
        // The axis count needs an open handle; opening an open device only adds a reference.
        if (SDL_Joystick *joystick = SDL_JoystickOpen(index)) {
            info.axes = qMax(0, SDL_JoystickNumAxes(joystick));
            SDL_JoystickClose(joystick);
        }
        result.append(info);
    }
    return result;
}

bool JoystickReader::select(const QString &guid)
{
    d->close();
    if (guid.isEmpty())
        return true;
    if (!d->ensureInitialised())
        return false;
    SDL_JoystickUpdate();
    const int count = SDL_NumJoysticks();
    for (int index = 0; index < count; ++index) {
        const QString candidate = guidString(SDL_JoystickGetDeviceGUID(index));
        if (candidate.compare(guid, Qt::CaseInsensitive) != 0)
            continue;
        d->m_joystick = SDL_JoystickOpen(index);
        if (!d->m_joystick) {
            d->m_lastError = sdlError();
            return false;
        }
        d->m_guid = candidate;
        d->m_lastError.clear();
        return true;
    }
    return false;
}

bool JoystickReader::hasJoystick() const
{
    return d->m_joystick != nullptr;
}

QString JoystickReader::selectedGuid() const
{
    return d->m_guid;
}

bool JoystickReader::poll(JoystickAxisMap *axes)
{
    // Called every millisecond: without a controller, stay out of SDL entirely.
    if (!d->m_joystick)
        return false;
    SDL_JoystickUpdate();
    if (!SDL_JoystickGetAttached(d->m_joystick)) {
        d->close();
        return false;
    }
    const int count = qBound(0, SDL_JoystickNumAxes(d->m_joystick), kMaxAxes);
    std::array<qint16, kMaxAxes> values{};
    bool changed = d->m_last.size() != count;
    for (int axis = 0; axis < count; ++axis) {
        values[axis] = SDL_JoystickGetAxis(d->m_joystick, axis);
        if (!changed && d->m_last.value(axis) != values[axis])
            changed = true;
    }
    if (changed) {
        d->m_last.clear();
        for (int axis = 0; axis < count; ++axis)
            d->m_last.insert(axis, values[axis]);
    }
    if (axes)
        *axes = d->m_last;
    return changed;
}

QString JoystickReader::lastError() const
{
    return d->m_lastError;
}

#include "link/JoystickReader.h"

#include <SDL.h>

#include <QtTest>

#include <memory>

// Drives the reader with SDL's virtual joysticks, so no controller has to be plugged in.
class tst_JoystickReader : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init() { m_reader = std::make_unique<JoystickReader>(); }
    void cleanup();
    void cleanupTestCase() { SDL_QuitSubSystem(SDL_INIT_JOYSTICK); }

    void detectListsEveryAxis();
    void selectByGuid();
    void poll_data();
    void poll();
    void unplugClosesJoystick();

private:
    // Attaches a virtual joystick and keeps a handle to drive its axes.
    bool attach(int axes, const char *name);
    void detach();

    std::unique_ptr<JoystickReader> m_reader;
    SDL_Joystick *m_virtual = nullptr;
    QString m_virtualGuid;
};

bool tst_JoystickReader::attach(int axes, const char *name)
{
    SDL_VirtualJoystickDesc desc;
    SDL_zero(desc);
    desc.version = SDL_VIRTUAL_JOYSTICK_DESC_VERSION;
    desc.type = SDL_JOYSTICK_TYPE_GAMECONTROLLER;
    desc.naxes = static_cast<Uint16>(axes);
    desc.nbuttons = 4;
    desc.vendor_id = 0xabcd; // hex letters, so the upper-case GUID differs
    desc.product_id = 0x5678;
    desc.name = name;
    const int index = SDL_JoystickAttachVirtualEx(&desc);
    if (index < 0)
        return false;
    char guid[33] = {};
    SDL_JoystickGetGUIDString(SDL_JoystickGetDeviceGUID(index), guid, sizeof guid);
    m_virtualGuid = QString::fromLatin1(guid);
    m_virtual = SDL_JoystickOpen(index);
    return m_virtual != nullptr;
}

void tst_JoystickReader::detach()
{
    if (!m_virtual)
        return;
    const SDL_JoystickID id = SDL_JoystickInstanceID(m_virtual);
    SDL_JoystickClose(m_virtual);
    m_virtual = nullptr;
    for (int index = 0; index < SDL_NumJoysticks(); ++index) {
        if (SDL_JoystickGetDeviceInstanceID(index) == id) {
            SDL_JoystickDetachVirtual(index);
            break;
        }
    }
}

void tst_JoystickReader::initTestCase()
{
    qputenv("SDL_VIDEODRIVER", "dummy");
    qputenv("SDL_AUDIODRIVER", "dummy");
    // Initialise through the reader first, as the program does; the test's own reference keeps
    // the subsystem alive across the readers each test creates.
    JoystickReader reader;
    reader.detect();
    QVERIFY2(reader.lastError().isEmpty(), qPrintable(reader.lastError()));
    QCOMPARE(SDL_InitSubSystem(SDL_INIT_JOYSTICK), 0);
}

void tst_JoystickReader::cleanup()
{
    m_reader.reset();
    detach();
}

void tst_JoystickReader::detectListsEveryAxis()
{
    QVERIFY(attach(12, "Vexo Test Console"));
    const JoystickVector found = m_reader->detect();
    QCOMPARE(found.size(), SDL_NumJoysticks());
    QStringList seen;
    for (const JoystickInfo &info : found) {
        if (info.guid == m_virtualGuid)
            seen << QStringLiteral("%1/%2").arg(info.name).arg(info.axes);
    }
    // More axes than the frame has channels: detection still reports them all, and selects nothing.
    QCOMPARE(seen, QStringList{"Vexo Test Console/12"});
    QVERIFY(!m_reader->hasJoystick());
}

void tst_JoystickReader::selectByGuid()
{
    QVERIFY(attach(3, "Vexo Select Stick"));
    m_reader->detect();
    // GUIDs match whatever their case; the reader keeps SDL's spelling.
    const QString upper = m_virtualGuid.toUpper();
    QVERIFY(upper != m_virtualGuid);
    QVERIFY(m_reader->select(upper));
    QCOMPARE(m_reader->selectedGuid(), m_virtualGuid);
    JoystickAxisMap axes;
    QVERIFY(m_reader->poll(&axes));
    // An unknown GUID closes what was open.
    QVERIFY(!m_reader->select(QStringLiteral("0300dead0000beef0000cafe00000000")));
    QVERIFY(!m_reader->hasJoystick() && m_reader->selectedGuid().isEmpty());
    QVERIFY(!m_reader->poll(&axes));
}

using AxisValues = QVector<qint16>;

void tst_JoystickReader::poll_data()
{
    QTest::addColumn<int>("axisCount");
    QTest::addColumn<AxisValues>("first");
    QTest::addColumn<AxisValues>("second");
    QTest::addColumn<bool>("secondChanged");

    QTest::newRow("unchanged") << 4 << AxisValues{100, -200, 300, -400} << AxisValues{100, -200, 300, -400}
                               << false;
    QTest::newRow("last axis moves") << 4 << AxisValues{100, -200, 300, -400}
                                     << AxisValues{100, -200, 300, -401} << true;
    // Only eight channels: axes past the eighth are neither reported nor counted as changes.
    QTest::newRow("ninth axis ignored") << 10 << AxisValues{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}
                                        << AxisValues{1, 2, 3, 4, 5, 6, 7, 8, -9, -10} << false;
    QTest::newRow("eighth axis counts") << 10 << AxisValues{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}
                                        << AxisValues{1, 2, 3, 4, 5, 6, 7, -8, 9, 10} << true;
}

void tst_JoystickReader::poll()
{
    QFETCH(int, axisCount);
    QFETCH(AxisValues, first);
    QFETCH(AxisValues, second);
    QFETCH(bool, secondChanged);

    QVERIFY(attach(axisCount, "Vexo Poll Stick"));
    QVERIFY(m_reader->select(m_virtualGuid));

    // The third poll: nothing moved since, so no change is reported, but the values are still delivered.
    JoystickAxisMap axes;
    QList<bool> changed;
    QList<JoystickAxisMap> seen, expected;
    for (const AxisValues &values : {first, second, second}) {
        expected << JoystickAxisMap();
        for (int axis = 0; axis < values.size(); ++axis) {
            SDL_JoystickSetVirtualAxis(m_virtual, axis, values.at(axis));
            if (axis < 8)
                expected.last().insert(axis, values.at(axis));
        }
        changed << m_reader->poll(&axes);
        seen << axes;
    }
    QCOMPARE(changed, QList<bool>({true, secondChanged, false}));
    QCOMPARE(seen, expected);
}

void tst_JoystickReader::unplugClosesJoystick()
{
    QVERIFY(attach(2, "Vexo Unplug Stick"));
    const QString guid = m_virtualGuid;
    QVERIFY(m_reader->select(guid));
    SDL_JoystickSetVirtualAxis(m_virtual, 0, 5000);
    JoystickAxisMap axes;
    QVERIFY(m_reader->poll(&axes));

    detach();
    QVERIFY(!m_reader->poll(&axes));
    QVERIFY(!m_reader->hasJoystick());
    QVERIFY(m_reader->selectedGuid().isEmpty());
    // With nothing open a poll leaves the axes alone, and takes no map at all.
    axes = {{0, 123}};
    QVERIFY(!m_reader->poll(&axes));
    QCOMPARE(axes, (JoystickAxisMap{{0, 123}}));
    QVERIFY(!m_reader->poll(nullptr));

    // Gone from the list, and it cannot be selected any more.
    for (const JoystickInfo &info : m_reader->detect())
        QVERIFY(info.guid != guid);
    QVERIFY(!m_reader->select(guid));
}

QTEST_GUILESS_MAIN(tst_JoystickReader)
#include "tst_JoystickReader.moc"

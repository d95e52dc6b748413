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
    void init();
    void cleanup();
    void cleanupTestCase();

    void detectListsDevice_data();
    void detectListsDevice();
    void select_data();
    void select();
    void poll_data();
    void poll();
    void pollWithoutJoystick();
    void unplugClosesJoystick();

private:
    // Attaches a virtual joystick and keeps a handle to drive its axes.
    bool attach(int axes, const char *name, quint16 product = 0x5678);
    void detach();

    std::unique_ptr<JoystickReader> m_reader;
    SDL_Joystick *m_virtual = nullptr;
    QString m_virtualGuid;
};

bool tst_JoystickReader::attach(int axes, const char *name, quint16 product)
{
    SDL_VirtualJoystickDesc desc;
    SDL_zero(desc);
    desc.version = SDL_VIRTUAL_JOYSTICK_DESC_VERSION;
    desc.type = SDL_JOYSTICK_TYPE_GAMECONTROLLER;
    desc.naxes = static_cast<Uint16>(axes);
    desc.nbuttons = 4;
    desc.vendor_id = 0xabcd; // hex letters, so the upper-case GUID differs
    desc.product_id = product;
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

void tst_JoystickReader::init()
{
    m_reader = std::make_unique<JoystickReader>();
}

void tst_JoystickReader::cleanup()
{
    m_reader.reset();
    detach();
}

void tst_JoystickReader::cleanupTestCase()
{
    SDL_QuitSubSystem(SDL_INIT_JOYSTICK);
}

void tst_JoystickReader::detectListsDevice_data()
{
    QTest::addColumn<int>("axes");
    QTest::addColumn<QByteArray>("name");

    QTest::newRow("two axes") << 2 << QByteArray("Vexo Test Stick");
    // More axes than the frame has channels: detection still reports them all.
    QTest::newRow("twelve axes") << 12 << QByteArray("Vexo Test Console");
}

void tst_JoystickReader::detectListsDevice()
{
    QFETCH(int, axes);
    QFETCH(QByteArray, name);

    QVERIFY(attach(axes, name.constData()));
    const JoystickVector found = m_reader->detect();
    QCOMPARE(found.size(), SDL_NumJoysticks());
    int matches = 0;
    for (const JoystickInfo &info : found) {
        if (info.guid != m_virtualGuid)
            continue;
        ++matches;
        QCOMPARE(info.name, QString::fromUtf8(name));
        QCOMPARE(info.axes, axes);
    }
    QCOMPARE(matches, 1);
    // Detection must not leave anything selected.
    QVERIFY(!m_reader->hasJoystick());
}

void tst_JoystickReader::select_data()
{
    QTest::addColumn<bool>("preselect");
    QTest::addColumn<QString>("target"); // "device", "DEVICE" (upper case), "unknown" or ""
    QTest::addColumn<bool>("result");
    QTest::addColumn<bool>("open");

    QTest::newRow("attached device") << false << "device" << true << true;
    QTest::newRow("guid in upper case") << false << "DEVICE" << true << true;
    QTest::newRow("same device again") << true << "device" << true << true;
    QTest::newRow("unknown guid") << false << "unknown" << false << false;
    QTest::newRow("unknown guid closes previous") << true << "unknown" << false << false;
    QTest::newRow("empty guid with nothing open") << false << "" << true << false;
    QTest::newRow("empty guid closes") << true << "" << true << false;
}

void tst_JoystickReader::select()
{
    QFETCH(bool, preselect);
    QFETCH(QString, target);
    QFETCH(bool, result);
    QFETCH(bool, open);

    QVERIFY(attach(3, "Vexo Select Stick"));
    m_reader->detect();
    if (preselect) {
        QVERIFY(m_reader->select(m_virtualGuid));
        QVERIFY(m_reader->hasJoystick());
    }
    QString guid;
    if (target == "device")
        guid = m_virtualGuid;
    else if (target == "DEVICE")
        guid = m_virtualGuid.toUpper();
    else if (target == "unknown")
        guid = QStringLiteral("0300dead0000beef0000cafe00000000");
    QVERIFY(target != "DEVICE" || guid != m_virtualGuid);

    QCOMPARE(m_reader->select(guid), result);
    QCOMPARE(m_reader->hasJoystick(), open);
    QCOMPARE(m_reader->selectedGuid(), open ? m_virtualGuid : QString());
    JoystickAxisMap axes;
    QCOMPARE(m_reader->poll(&axes), open);
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
    QTest::newRow("first axis moves") << 4 << AxisValues{0, 0, 0, 0} << AxisValues{1, 0, 0, 0} << true;
    QTest::newRow("extremes") << 3 << AxisValues{-32768, 32767, 0} << AxisValues{32767, -32768, 0} << true;
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

    const auto setAndExpect = [this](const AxisValues &values) {
        for (int axis = 0; axis < values.size(); ++axis)
            SDL_JoystickSetVirtualAxis(m_virtual, axis, values.at(axis));
        JoystickAxisMap expected;
        for (int axis = 0; axis < qMin(values.size(), 8); ++axis)
            expected.insert(axis, values.at(axis));
        return expected;
    };

    JoystickAxisMap axes;
    const JoystickAxisMap firstExpected = setAndExpect(first);
    QVERIFY(m_reader->poll(&axes));
    QCOMPARE(axes, firstExpected);
    // The frame takes channels in key order, which must be axis order.
    QCOMPARE(axes.keys(), firstExpected.keys());

    const JoystickAxisMap secondExpected = setAndExpect(second);
    QCOMPARE(m_reader->poll(&axes), secondChanged);
    QCOMPARE(axes, secondExpected);

    // Nothing moved since: no change reported, values still delivered.
    QVERIFY(!m_reader->poll(&axes));
    QCOMPARE(axes, secondExpected);
}

void tst_JoystickReader::pollWithoutJoystick()
{
    JoystickAxisMap axes{{0, 123}};
    QVERIFY(!m_reader->poll(&axes));
    QCOMPARE(axes, (JoystickAxisMap{{0, 123}}));
    QVERIFY(!m_reader->poll(nullptr));
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
    QVERIFY(!m_reader->poll(&axes));

    // Gone from the list, and it cannot be selected any more.
    for (const JoystickInfo &info : m_reader->detect())
        QVERIFY(info.guid != guid);
    QVERIFY(!m_reader->select(guid));
}

QTEST_GUILESS_MAIN(tst_JoystickReader)
#include "tst_JoystickReader.moc"

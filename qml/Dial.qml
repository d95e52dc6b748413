import QtQuick 2.15

// One telemetry variable on an analogue gauge. The window sets min, max, value, sensorLoaded, firstLoad,
// autoRange, name and unit; the scale (realMin … realMax in ticks of realStep) follows from them.
Rectangle {
    id: root

    property real min: -1
    property real max: 1
    property real value: 0
    property bool sensorLoaded: false
    property bool firstLoad: true
    property bool autoRange: true
    property string name: ""
    property string unit: ""

    // The scale, recomputed by updateRange(). With automatic range and max <= min (a single sample, or
    // nothing yet) the previous scale is kept rather than collapsing to an empty one.
    property real realMin: -1
    property real realMax: 1
    property real realStep: 0.1
    property int realDecimals: 0

    // Where the needle is heading (the needle itself springs towards it).
    readonly property real needleAngle: {
        if (min === max || realMax === realMin)
            return 0;
        var a = (value - realMin) * 260 / (realMax - realMin) - 130;
        if (isNaN(a))
            return 0;
        return Math.max(-130, Math.min(133, a));
    }
    // Ticks from realMin to realMax, one per realStep (bounded, whatever the window sends).
    readonly property int tickCount: {
        var span = realMax - realMin;
        if (!(span > 0) || !(realStep > 0))
            return 0;
        return Math.min(2000, Math.floor(span / realStep + 1e-6) + 1);
    }

    property bool dropHover: false

    signal sensorDropped(var id, var param)
    signal popupMenu()
    signal setFocus()

    width: 300
    height: 300
    color: dropHover ? "#d8d8d8" : "white"

    onValueChanged: updateRange()
    onMinChanged: updateRange()
    onMaxChanged: updateRange()
    onAutoRangeChanged: updateRange()
    onUnitChanged: updateRange()
    Component.onCompleted: updateRange()

    function updateRange() {
        if (!isFinite(min) || !isFinite(max))
            return;
        var degrees = unit === "°";
        var newMin, newMax;
        if (autoRange) {
            if (min < 0 && 0 <= max) {
                newMax = Math.ceil(Math.max(max, -min));
                newMin = -newMax;
            } else if (max > min) {
                if (degrees) {
                    newMin = 0;
                    newMax = 360;
                } else if (max > 0) {
                    newMin = 0;
                    newMax = max;
                } else {
                    newMin = min;
                    newMax = 0;
                }
            } else {
                return;
            }
        } else {
            newMin = min;
            newMax = max;
        }

        var range = Math.max(newMax - newMin, 1);
        var step = 0.1;
        while (step < range)
            step *= 10;
        step /= 10;

        // Two decimals are asked for first and then overruled: the labels carry at most one.
        var decimals = 0;
        if (step < 0.02)
            decimals = 2;
        if (step < 0.2)
            decimals = 1;

        if (!degrees) {
            newMax = Math.ceil(newMax / step) * step;
            if (newMin < 0 && 0 < newMax && autoRange)
                newMin = -newMax;
            else
                newMin = Math.floor(newMin / step) * step;
        }

        realMax = newMax;
        realMin = newMin;
        realStep = step / 10;
        realDecimals = decimals;
    }

    function tickAngle(i) {
        return -130 + realStep * i * 260 / (realMax - realMin);
    }

    function tickLabel(i) {
        var v = realMin + realStep * i;
        // Keep rounding noise from printing as "-0".
        if (Math.abs(v) < realStep * 1e-6)
            v = 0;
        return v.toFixed(realDecimals);
    }

    function escaped(text) {
        return text.replace(/&/g, "&amp;").replace(/</g, "&lt;").replace(/>/g, "&gt;");
    }

    // A dropped payload {"Sensor": id, "Param": n}; anything else is ignored.
    function acceptPayload(text) {
        var data;
        try {
            data = JSON.parse(text);
        } catch (e) {
            return false;
        }
        if (data === null || typeof data !== "object" || !("Sensor" in data) || !("Param" in data))
            return false;
        root.sensorDropped(data.Sensor, data.Param);
        return true;
    }

    Item {
        id: face

        readonly property real size: Math.min(root.width, root.height)
        readonly property real tickRadius: size * 408 / 1024
        readonly property real labelPixels: Math.max(9, Math.round(size * 0.045))

        width: size
        height: size
        anchors.centerIn: parent

        // Face, scale and caption change only with the range or the variable: drawn once into a layer, so
        // the springing needle costs a blit rather than a repaint of every tick.
        Item {
            id: backdrop

            anchors.fill: parent
            layer.enabled: true

            Image {
                anchors.fill: parent
                source: "qrc:///Icons/Program/Resources/dial.svg"
                sourceSize: Qt.size(1024, 1024)
                fillMode: Image.PreserveAspectFit
                smooth: true
                mipmap: true
            }

            Item {
                id: scale

                objectName: "scale"
                anchors.fill: parent
                visible: root.sensorLoaded && root.min !== root.max

                Repeater {
                    model: scale.visible ? root.tickCount : 0

                    Item {
                        readonly property bool major: index % 10 === 0

                        width: face.size
                        height: face.size
                        rotation: root.tickAngle(index)

                        // White with a darker outline, the outline straddling the edge as a painted stroke would.
                        Rectangle {
                            width: (parent.major ? 4 : 2) + 1
                            height: (parent.major ? 10 : 5) + 1
                            x: (face.size - width) / 2
                            y: face.size / 2 - face.tickRadius
                            color: "white"
                            border.color: Qt.darker("white", 1.6)
                            border.width: 1
                            antialiasing: true
                        }
                    }
                }

                Repeater {
                    model: scale.visible ? Math.floor((root.tickCount - 1) / 10) + 1 : 0

                    Text {
                        readonly property real angle: root.tickAngle(index * 10) * Math.PI / 180
                        readonly property real radius: face.tickRadius - 10 - 4 - font.pixelSize * 0.9

                        objectName: "tickLabel"
                        x: face.size / 2 + radius * Math.sin(angle) - width / 2
                        y: face.size / 2 - radius * Math.cos(angle) - height / 2
                        text: root.tickLabel(index * 10)
                        color: "white"
                        style: Text.Outline
                        styleColor: Qt.darker("white", 1.6)
                        font.pixelSize: face.labelPixels
                    }
                }
            }

            Text {
                objectName: "caption"
                x: face.size * 0.3
                y: face.size * 0.59
                width: face.size * 0.4
                height: face.size * 0.22
                text: "<b>" + root.escaped(root.name) + "</b><p>"
                      + (root.unit === "" ? "" : "[" + root.escaped(root.unit) + "]") + "</p>"
                textFormat: Text.StyledText
                wrapMode: Text.WordWrap
                color: "white"
                font.pointSize: 10
                fontSizeMode: Text.Fit
                minimumPointSize: 5
                horizontalAlignment: Text.AlignHCenter
                verticalAlignment: Text.AlignTop
            }
        }

        Image {
            id: needle

            height: face.size * 0.4
            width: height / 10
            x: (face.size - width) / 2
            y: face.size / 2 - height
            source: "qrc:///Icons/Program/Resources/dial-arrow.svg"
            sourceSize: Qt.size(Math.max(1, Math.ceil(width)), Math.max(1, Math.ceil(height)))
            transformOrigin: Item.Bottom
            rotation: root.needleAngle
            // Without a variable there is nothing to point at.
            visible: root.sensorLoaded
            smooth: true
            antialiasing: true

            Behavior on rotation {
                SpringAnimation { spring: 1.4; damping: 0.15 }
            }
        }

        Image {
            width: face.size * 0.11
            height: width
            anchors.centerIn: parent
            source: "qrc:///Icons/Program/Resources/dial-middle.svg"
            sourceSize: Qt.size(Math.max(1, Math.ceil(width)), Math.max(1, Math.ceil(height)))
            smooth: true
        }
    }

    MouseArea {
        anchors.fill: parent
        acceptedButtons: Qt.LeftButton | Qt.RightButton
        onPressed: {
            root.setFocus();
            if (mouse.button === Qt.RightButton)
                root.popupMenu();
        }
    }

    DropArea {
        anchors.fill: parent
        keys: ["text/json"]
        onEntered: {
            root.dropHover = true;
            drag.accept(Qt.CopyAction);
        }
        onExited: root.dropHover = false
        onDropped: {
            root.dropHover = false;
            if (root.acceptPayload(drop.getDataAsString("text/json")))
                drop.accept(Qt.CopyAction);
        }
    }

    HintBand {
        shown: !root.sensorLoaded
        instant: root.firstLoad
    }
}

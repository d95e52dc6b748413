import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// A duration held by the device in seconds, shown as h:mm:ss with pAllowHour and as m:ss without (minutes
// then run past 59, up to 99:59). Typed as the same form; a plain number is taken as seconds.
Item {
    id: box

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property string pText: ""
    property int pParam: 0
    property int pReadOnly: 0
    property int pValue: 0
    property real pFloatValue: 0
    property int pAllowHour: 0
    property real unit: 1

    readonly property string shownText: format(pValue)

    signal updateParam(int param, int value)

    function pad(n) {
        return n < 10 ? "0" + n : String(n);
    }
    function format(seconds) {
        var sign = seconds < 0 ? "-" : "";
        var s = Math.abs(seconds);
        if (pAllowHour)
            return sign + Math.floor(s / 3600) + ":" + pad(Math.floor(s / 60) % 60) + ":" + pad(s % 60);
        return sign + Math.floor(s / 60) + ":" + pad(s % 60);
    }
    function parse(text) {
        var parts = String(text).trim().split(":");
        var total = 0;
        for (var i = 0; i < parts.length; ++i) {
            if (!/^\d+$/.test(parts[i]))
                return spin.value;
            total = total * 60 + Number(parts[i]);
        }
        return total;
    }
    function updateValue(list) {
        for (var i = 0; i < list.length; ++i) {
            if (list[i].id === pParam) {
                pValue = list[i].value;
                pFloatValue = list[i].floatValue;
                return;
            }
        }
    }

    onPValueChanged: spin.value = pValue

    Layout.preferredWidth: pWidth * unit
    Layout.preferredHeight: pHeight > 0 ? pHeight : implicitHeight
    implicitHeight: grid.implicitHeight + 8

    GridLayout {
        id: grid
        anchors.fill: parent
        anchors.margins: 4
        columns: width >= 300 ? 2 : 1
        columnSpacing: 8
        rowSpacing: 2

        Label {
            Layout.fillWidth: true
            visible: text !== ""
            text: box.pText
            color: "#1c1c1c"
            wrapMode: Text.WordWrap
            font.pointSize: box.pFont === 2 ? 18 : box.pFont === 3 ? 9 : 12
            font.bold: box.pFont > 0
        }
        SpinBox {
            id: spin
            objectName: "spinBox"
            Layout.preferredWidth: 160
            Layout.fillWidth: grid.columns === 1
            visible: !box.pReadOnly
            editable: true
            from: 0
            to: box.pAllowHour ? 359999 : 5999
            value: box.pValue
            font.pointSize: 12
            textFromValue: function (value) {
                return box.format(value);
            }
            valueFromText: function (text) {
                return box.parse(text);
            }
            validator: RegularExpressionValidator {
                regularExpression: /^\d{0,3}(:\d{0,2}){0,2}$/
            }
            onValueModified: {
                box.pValue = value;
                box.updateParam(box.pParam, value);
            }
        }
        Label {
            objectName: "valueText"
            Layout.preferredWidth: 160
            Layout.fillWidth: grid.columns === 1
            visible: box.pReadOnly
            text: box.shownText
            horizontalAlignment: grid.columns === 1 ? Text.AlignLeft : Text.AlignRight
            font.pointSize: 12
            font.bold: true
            color: "#1c1c1c"
        }
    }
}

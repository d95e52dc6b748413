import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// A number box for one parameter. The box counts in raw device units, so every step and every typed value
// is exactly what is sent: the text shows raw / 10^pDecimals, and a typed 12.34 with two decimals is 1234.
// The limits pMin and pMax are raw values too; a typed value outside them is clamped when editing ends.
Item {
    id: box

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property string pText: ""
    property int pMin: -2147483648
    property int pMax: 2147483647
    property int pDecimals: 0
    property int pParam: 0
    property int pReadOnly: 0
    property int pValue: 0
    property real pFloatValue: 0
    property real unit: 1

    readonly property real factor: Math.pow(10, Math.max(0, pDecimals))
    // The text shown for the current value.
    readonly property string shownText: format(pValue)

    // Only a user's edit sends a value: never a value that arrives from the device.
    signal updateParam(int param, int value)

    function format(raw) {
        return (raw / factor).toFixed(Math.max(0, pDecimals));
    }
    function parse(text) {
        var v = parseFloat(String(text).replace(",", "."));
        return isNaN(v) ? spin.value : Math.round(v * factor);
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
    // Decimals that arrive after the value: the box shows the value again with them (the box only
    // redraws its text when its value changes).
    onPDecimalsChanged: {
        var v = spin.value;
        spin.value = v < spin.to ? v + 1 : v - 1;
        spin.value = v;
    }

    Layout.preferredWidth: pWidth * unit
    Layout.preferredHeight: pHeight > 0 ? pHeight : implicitHeight
    implicitHeight: grid.implicitHeight + 8

    GridLayout {
        id: grid
        anchors.fill: parent
        anchors.margins: 4
        // Side by side where there is room, the caption above the box where there is not.
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
            from: Math.min(box.pMin, box.pMax)
            to: Math.max(box.pMin, box.pMax)
            stepSize: box.pDecimals > 2 ? Math.pow(10, box.pDecimals - 2) : 1
            value: box.pValue
            font.pointSize: 12
            textFromValue: function (value) {
                return box.format(value);
            }
            valueFromText: function (text) {
                return box.parse(text);
            }
            validator: RegularExpressionValidator {
                regularExpression: box.pDecimals > 0 ? new RegExp("^-?\\d*([.,]\\d{0," + box.pDecimals + "})?$")
                                                     : /^-?\d*$/
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

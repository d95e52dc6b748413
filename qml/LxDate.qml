import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// A date held by the device as the number yyyymmdd (20240517), shown and typed as yyyy-mm-dd. 0 means not
// set. A typed date is sent only when it is a real calendar date within pMin..pMax (when they are given);
// anything else puts the device's date back in the box.
Item {
    id: box

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property string pText: ""
    property int pMin: 0
    property int pMax: 0
    property int pDecimals: 0
    property int pParam: 0
    property int pReadOnly: 0
    property int pValue: 0
    property real pFloatValue: 0
    property real unit: 1

    readonly property string shownText: format(pValue)

    signal updateParam(int param, int value)

    function pad(n, width) {
        var s = String(n);
        while (s.length < width)
            s = "0" + s;
        return s;
    }
    function format(value) {
        if (value <= 0)
            return "Not set";
        return pad(Math.floor(value / 10000), 4) + "-" + pad(Math.floor(value / 100) % 100, 2) + "-" + pad(value % 100, 2);
    }
    // yyyymmdd of a typed yyyy-mm-dd, or -1 when it is no calendar date.
    function parse(text) {
        var m = /^\s*(\d{4})-(\d{1,2})-(\d{1,2})\s*$/.exec(text);
        if (!m)
            return -1;
        var y = Number(m[1]), mo = Number(m[2]), d = Number(m[3]);
        var date = new Date(y, mo - 1, d);
        if (date.getFullYear() !== y || date.getMonth() !== mo - 1 || date.getDate() !== d)
            return -1;
        return y * 10000 + mo * 100 + d;
    }
    function commit() {
        var value = parse(field.text);
        var limited = pMax > pMin;
        if (value < 0 || (limited && (value < pMin || value > pMax))) {
            field.text = shownText;
            return;
        }
        field.text = format(value);
        if (value === pValue)
            return;
        pValue = value;
        updateParam(pParam, value);
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

    onShownTextChanged: if (!field.activeFocus) field.text = shownText

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
        TextField {
            id: field
            objectName: "dateField"
            Layout.preferredWidth: 160
            Layout.fillWidth: grid.columns === 1
            readOnly: box.pReadOnly
            text: box.shownText
            placeholderText: "yyyy-mm-dd"
            horizontalAlignment: Text.AlignHCenter
            font.pointSize: 12
            font.bold: box.pReadOnly
            background.visible: !box.pReadOnly
            onEditingFinished: if (!box.pReadOnly) box.commit()
            onActiveFocusChanged: if (!activeFocus && !box.pReadOnly) box.commit()
        }
    }
}

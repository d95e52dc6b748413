import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// A choice of one value from pKeyValues, a list of [value, text] pairs. A value the list does not name is
// shown as its number, so the user sees what the device holds rather than a neighbouring choice.
Item {
    id: box

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property string pText: ""
    property int pDecimals: 0
    property int pParam: 0
    property int pReadOnly: 0
    property var pKeyValues: []
    property int pValue: 0
    property real pFloatValue: 0
    property real unit: 1

    readonly property int currentIndex: indexOf(pValue, pKeyValues)
    readonly property string shownText: currentIndex >= 0 ? String(pKeyValues[currentIndex][1])
                                                          : (pValue / Math.pow(10, pDecimals)).toFixed(pDecimals)

    signal updateParam(int param, int value)

    function indexOf(value, pairs) {
        for (var i = 0; i < pairs.length; ++i) {
            if (Number(pairs[i][0]) === value)
                return i;
        }
        return -1;
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
        ComboBox {
            id: combo
            objectName: "comboBox"
            Layout.preferredWidth: 160
            Layout.fillWidth: grid.columns === 1
            enabled: !box.pReadOnly
            model: box.pKeyValues.map(function (pair) {
                return String(pair[1]);
            })
            currentIndex: box.currentIndex
            displayText: box.shownText
            font.pointSize: 12
            onActivated: {
                var value = Number(box.pKeyValues[index][0]);
                if (value === box.pValue)
                    return;
                box.pValue = value;
                box.updateParam(box.pParam, value);
            }
        }
    }
}

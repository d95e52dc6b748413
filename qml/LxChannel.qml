import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// A channel choice. A negative value means the device is still waiting to learn the channel: animated dots
// until it answers. 0 is "N/A", any other value "Ch. n". Beside it the device's expression pText: a percentage
// (pProportional 1), a plain number (other non-zero pProportional) or a check / cross mark (pProportional 0).
Item {
    id: box

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property string pText: ""
    property int pParam: 0
    property int pReadOnly: 0
    property int pValue: 0
    property int pProportional: 1
    property int pValueId: 0
    // [value, text] pairs of the channels offered; "N/A" (0) is always offered first.
    property var pKeyValues: []
    property real unit: 1

    property int dots: 3
    readonly property string channelText: pValue < 0 ? "...".substring(0, dots) : pValue === 0 ? "N/A"
                                                                                             : "Ch. " + pValue
    // The expression's value, evaluated again on every value update.
    property real exprValue: 0
    readonly property string secondText: pProportional === 1 ? Math.round(exprValue) + "%"
                                         : pProportional !== 0 ? String(Number(exprValue.toFixed(2)))
                                         : exprValue !== 0 ? "\u2714" : "\u2718"
    readonly property var choices: [[0, "N/A"]].concat(pKeyValues.filter(function (pair) {
        return Number(pair[0]) !== 0;
    }))

    signal updateParam(int param, int value)

    function evaluate() {
        var v = pText === "" ? 0 : Number(MainWindow.parseExpr(pText));
        exprValue = isFinite(v) ? v : 0;
    }
    function updateValue(list) {
        for (var i = 0; i < list.length; ++i) {
            if (list[i].id === pParam) {
                pValue = list[i].value;
                break;
            }
        }
        evaluate();
    }

    onPTextChanged: evaluate()
    onPValueChanged: dots = 3

    Layout.preferredWidth: pWidth * unit
    Layout.preferredHeight: pHeight > 0 ? pHeight : implicitHeight
    implicitHeight: row.implicitHeight + 8

    // Three dots, none, one, two, three, ... while the value is negative.
    Timer {
        interval: 800
        repeat: true
        running: box.pValue < 0
        onTriggered: box.dots = (box.dots + 1) % 4
    }

    RowLayout {
        id: row
        anchors.fill: parent
        anchors.margins: 4
        spacing: 8

        ComboBox {
            id: combo
            objectName: "comboBox"
            Layout.fillWidth: true
            Layout.maximumWidth: 200
            enabled: !box.pReadOnly
            model: box.choices.map(function (pair) {
                return String(pair[1]);
            })
            currentIndex: {
                for (var i = 0; i < box.choices.length; ++i) {
                    if (Number(box.choices[i][0]) === box.pValue)
                        return i;
                }
                return -1;
            }
            displayText: box.channelText
            font.pointSize: box.pFont === 2 ? 18 : box.pFont === 3 ? 9 : 12
            font.bold: box.pFont > 0
            onActivated: {
                var value = Number(box.choices[index][0]);
                if (value === box.pValue)
                    return;
                box.pValue = value;
                box.updateParam(box.pParam, value);
            }
        }
        Label {
            objectName: "secondText"
            Layout.fillWidth: true
            text: box.secondText
            color: box.pProportional !== 0 ? "#1c1c1c" : box.exprValue !== 0 ? "#1E9E3A" : "#D0312D"
            font.pointSize: box.pProportional === 0 ? 18 : 12
            font.bold: true
            horizontalAlignment: Text.AlignRight
        }
    }
}

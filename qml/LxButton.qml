import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// One bit of a parameter as a switch: on while bit pBitNo of pValue is set. A click hands the whole value
// with that bit toggled. With pBitNo -1 the value itself is the switch: 0 off, anything else on.
Item {
    id: button

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property string pText: ""
    property int pParam: 0
    property int pBitNo: -1
    property int pValue: 0
    property int pReadOnly: 0
    property real unit: 1

    readonly property bool isSet: pBitNo >= 0 && pBitNo < 32 ? ((pValue >>> pBitNo) & 1) === 1 : pValue !== 0

    signal clicked(int paramId, int bitNo, int val)

    function toggled() {
        var value = pBitNo >= 0 && pBitNo < 32 ? (pValue ^ (1 << pBitNo)) : (pValue !== 0 ? 0 : 1);
        pValue = value;
        clicked(pParam, pBitNo, value);
    }
    function updateValue(list) {
        for (var i = 0; i < list.length; ++i) {
            if (list[i].id === pParam) {
                pValue = list[i].value;
                return;
            }
        }
    }

    Layout.preferredWidth: pWidth * unit
    Layout.preferredHeight: pHeight > 0 ? pHeight : implicitHeight
    implicitHeight: toggle.implicitHeight + 4

    Switch {
        id: toggle
        objectName: "switch"
        anchors.fill: parent
        anchors.margins: 2
        text: button.pText
        checked: button.isSet
        enabled: !button.pReadOnly
        font.pointSize: button.pFont === 2 ? 18 : button.pFont === 3 ? 9 : 12
        font.bold: button.pFont > 0
        onToggled: button.toggled()
    }
}

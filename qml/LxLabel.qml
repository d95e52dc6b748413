import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// Static text, or with pDynamic the device's label expression pText, evaluated again on every value update.
Label {
    id: label

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property string pText: ""
    property int pReadOnly: 0
    property int pAlignRight: 0
    property int pDynamic: 0
    property real unit: 1

    function refresh() {
        text = pDynamic ? MainWindow.parseExprLabel(pText) : pText;
    }
    function updateValue(list) {
        if (pDynamic)
            refresh();
    }

    onPTextChanged: refresh()
    onPDynamicChanged: refresh()

    Layout.preferredWidth: pWidth * unit
    Layout.preferredHeight: pHeight > 0 ? pHeight : -1
    leftPadding: 4
    rightPadding: 4
    topPadding: 4
    bottomPadding: 4
    color: "#1c1c1c"
    wrapMode: Text.WordWrap
    verticalAlignment: Text.AlignVCenter
    horizontalAlignment: pAlignRight ? Text.AlignRight : Text.AlignLeft
    font.pointSize: pFont === 2 ? 18 : pFont === 3 ? 9 : 12
    font.bold: pFont > 0
}

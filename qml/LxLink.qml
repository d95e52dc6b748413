import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// A link to another page (or a file): the whole row is the target, so it is easy to hit.
Rectangle {
    id: link

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property string pText: ""
    property int pPage: 0
    property int pAlignRight: 0
    property int pWizardMode: -1
    property string pFile: ""
    property int pMeaning: 0
    property int pReadOnly: 0
    property real unit: 1

    signal clicked(int pageId, string file, int wizardMode, int meaning)

    Layout.preferredWidth: pWidth * unit
    Layout.preferredHeight: pHeight > 0 ? pHeight : Math.max(40, caption.implicitHeight + 12)
    color: area.pressed ? "#334F6CAB" : area.containsMouse ? "#1A4F6CAB" : "transparent"
    radius: 3

    Label {
        id: caption
        anchors.fill: parent
        anchors.leftMargin: 6
        anchors.rightMargin: 6
        text: link.pText
        color: link.enabled ? "#1F4FA0" : "#888"
        font.pointSize: link.pFont === 2 ? 18 : link.pFont === 3 ? 9 : 12
        font.bold: link.pFont > 0
        font.underline: area.containsMouse
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
        horizontalAlignment: link.pAlignRight ? Text.AlignRight : Text.AlignLeft
    }
    MouseArea {
        id: area
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: link.clicked(link.pPage, link.pFile, link.pWizardMode, link.pMeaning)
    }
}

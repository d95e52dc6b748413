import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// A button that runs a device command; the window asks for confirmation where the device wants it.
Item {
    id: command

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property string pText: ""
    property int pCommand: 0
    property int pValue: 0
    property int pMeaning: 0
    property int pAlignRight: 0
    property int pPage: 0
    property int pWizard: 0
    property int pReadOnly: 0
    property real unit: 1

    signal clicked(int cmd, int val, int meaning, int page, int wizard)

    Layout.preferredWidth: pWidth * unit
    Layout.preferredHeight: pHeight > 0 ? pHeight : button.implicitHeight + 8
    implicitHeight: button.implicitHeight + 8

    Button {
        id: button
        objectName: "commandButton"
        anchors.verticalCenter: parent.verticalCenter
        x: command.pAlignRight ? parent.width - width - 4 : 4
        width: Math.min(parent.width - 8, Math.max(implicitWidth, parent.width * 0.6))
        height: command.pHeight > 0 ? command.pHeight - 8 : implicitHeight
        text: command.pText
        enabled: !command.pReadOnly
        font.pointSize: command.pFont === 2 ? 18 : command.pFont === 3 ? 9 : 12
        font.bold: command.pFont > 0
        onClicked: command.clicked(command.pCommand, command.pValue, command.pMeaning, command.pPage,
                                   command.pWizard)
    }
}

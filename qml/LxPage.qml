import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// One menu page of a device: its title and a column of components that scrolls when the page is taller than
// the window. LxRoot places the components into getLayout(); their widths are in units of 310 = the column.
Item {
    id: page

    property string pTitle: ""
    property int pageId: -1
    readonly property real margin: 12
    // Pixels per width unit.
    readonly property real unit: Math.max(0, width - 2 * margin) / 310

    function getLayout() {
        return column;
    }

    Flickable {
        anchors.fill: parent
        contentWidth: width
        contentHeight: column.height + 2 * page.margin
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        ScrollBar.vertical: ScrollBar {}

        ColumnLayout {
            id: column
            x: page.margin
            y: page.margin
            width: page.width - 2 * page.margin
            spacing: 6

            Label {
                objectName: "pageTitle"
                Layout.fillWidth: true
                Layout.bottomMargin: 4
                visible: text !== ""
                text: page.pTitle
                color: "#4F6CAB"
                font.pointSize: 14
                font.bold: true
                elide: Text.ElideRight
            }
        }
    }
}

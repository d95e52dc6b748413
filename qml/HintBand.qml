import QtQuick 2.15

// The band across the middle that invites a drop while nothing is shown.
Rectangle {
    id: band

    // True while no variable is shown.
    property bool shown: true
    // On the first load the band goes at once, so a restored layout does not flash it; later it fades.
    property bool instant: true

    objectName: "hintBand"
    anchors.left: parent.left
    anchors.right: parent.right
    anchors.leftMargin: 20
    anchors.rightMargin: 20
    anchors.verticalCenter: parent.verticalCenter
    height: Math.max(parent.height * 0.1, 25)
    z: 100
    color: "#DD4F6CAB"
    border.color: "black"
    border.width: 1
    opacity: shown ? 1 : 0
    visible: opacity > 0

    Behavior on opacity {
        enabled: !band.instant
        NumberAnimation { duration: 200 }
    }

    Text {
        anchors.fill: parent
        anchors.margins: 2
        text: qsTr("Drag sensor param here")
        color: "white"
        font.pointSize: 24
        fontSizeMode: Text.Fit
        minimumPointSize: 10
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
}

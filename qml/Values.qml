import QtQuick 2.15
import QtQuick.Controls 2.15

// The latest (or cursor) values of several variables, one row each, from "dataModel". Rows are reordered
// by dragging one onto another; everything per row is a plain binding, so live updates stay cheap.
Rectangle {
    id: root

    property bool firstLoad: true
    property bool dropHover: false
    // Taken from the model's own signals, so the hint reacts at once rather than at the list's next layout.
    property int shownRows: 0

    signal sensorDropped(var id, var param)
    signal popupMenu(int index)
    signal setFocus()

    width: 300
    height: 400
    color: dropHover ? "#d8d8d8" : "white"

    function countRows() {
        shownRows = dataModel ? dataModel.rowCount() : 0;
    }

    Component.onCompleted: countRows()

    Connections {
        target: dataModel
        function onRowsInserted() { root.countRows(); }
        function onRowsRemoved() { root.countRows(); }
        function onModelReset() { root.countRows(); }
    }

    // A dropped payload {"Sensor": id, "Param": n}; anything else is ignored.
    function acceptPayload(text) {
        var data;
        try {
            data = JSON.parse(text);
        } catch (e) {
            return false;
        }
        if (data === null || typeof data !== "object" || !("Sensor" in data) || !("Param" in data))
            return false;
        root.sensorDropped(data.Sensor, data.Param);
        return true;
    }

    // The row under a point of the scene, -1 between or outside rows.
    function rowAt(x, y) {
        var p = root.mapToItem(list.contentItem, x, y);
        return list.indexAt(p.x, p.y);
    }

    // A row dropped at a point of the scene lands in the place of the row there.
    function dropRow(from, x, y) {
        var to = rowAt(x, y);
        if (to >= 0 && to !== from)
            dataModel.move(from, to);
    }

    ListView {
        id: list

        objectName: "rows"
        anchors.fill: parent
        anchors.margins: 8
        spacing: 5
        clip: true
        model: dataModel
        boundsBehavior: Flickable.StopAtBounds
        // In the right margin, clear of the rows' texts.
        ScrollBar.vertical: ScrollBar {
            parent: root
            x: root.width - width
            y: list.y
            height: list.height
        }

        delegate: Item {
            id: slot

            width: ListView.view.width
            height: 62
            z: dragArea.drag.active ? 2 : 1

            Rectangle {
                id: card

                readonly property bool dragged: dragArea.drag.active

                width: slot.width
                height: slot.height
                radius: 5
                border.color: "#d8d8d8"
                color: dragged ? "#d8d8d8" : "white"
                opacity: dragged ? 0.7 : 1

                Text {
                    x: 8
                    y: 4
                    width: card.width - 16
                    text: model.name + ": " + model.label
                    font.pointSize: 10
                    elide: Text.ElideRight
                }

                Text {
                    id: valueText

                    x: 8
                    width: card.width / 2 - 8
                    anchors.bottom: card.bottom
                    anchors.bottomMargin: 4
                    text: model.value
                    font.pointSize: 16
                    font.bold: true
                    horizontalAlignment: Text.AlignRight
                    elide: Text.ElideLeft
                }

                Text {
                    x: card.width / 2 + 4
                    width: card.width / 4 - 4
                    anchors.baseline: valueText.baseline
                    text: model.unit
                    font.pointSize: 10
                    color: "#505050"
                    elide: Text.ElideRight
                }

                Column {
                    anchors.right: card.right
                    anchors.rightMargin: 8
                    anchors.bottom: card.bottom
                    anchors.bottomMargin: 6

                    Text {
                        anchors.right: parent.right
                        text: qsTr("Min: ") + model.minimum
                        font.pointSize: 9
                        color: "#303030"
                    }
                    Text {
                        anchors.right: parent.right
                        text: qsTr("Max: ") + model.maximum
                        font.pointSize: 9
                        color: "#303030"
                    }
                }
            }

            MouseArea {
                id: dragArea

                anchors.fill: parent
                drag.target: card
                drag.axis: Drag.YAxis
                // A vertical drag moves the row, it does not scroll the list (the wheel does).
                preventStealing: true
                onReleased: {
                    var p = card.mapToItem(root, card.width / 2, card.height / 2);
                    var from = index;
                    card.y = 0;
                    root.dropRow(from, p.x, p.y);
                }
            }
        }
    }

    // On top of the rows: every press gives the window focus, a right press asks for the menu, and left
    // presses go on to the rows underneath.
    MouseArea {
        anchors.fill: parent
        acceptedButtons: Qt.AllButtons
        onPressed: {
            root.setFocus();
            if (mouse.button === Qt.RightButton)
                root.popupMenu(root.rowAt(mouse.x, mouse.y));
            else
                mouse.accepted = false;
        }
    }

    DropArea {
        anchors.fill: parent
        keys: ["text/json"]
        onEntered: {
            root.dropHover = true;
            drag.accept(Qt.CopyAction);
        }
        onExited: root.dropHover = false
        onDropped: {
            root.dropHover = false;
            if (root.acceptPayload(drop.getDataAsString("text/json")))
                drop.accept(Qt.CopyAction);
        }
    }

    HintBand {
        shown: root.shownRows === 0
        instant: root.firstLoad
    }
}

import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// The device's menu pages. The window ("MainWindow") builds a page with addPage() and one add...() per
// element, each given one object of "p..." properties; the scene calls the window back for links, commands,
// writes, expressions and visibility. Pages are kept by id once built: going to one again pops back to it.
Item {
    id: root

    // True until the current page has all its values.
    property bool loading: true
    property int percentLoaded: 0
    property var pages: ({})      // "ID" + page id -> LxPage
    // "ID" + page id -> the page's components in creation order, rows included: the index isComponentVisible
    // receives.
    property var components: ({})
    property var currentPage: null
    property int currentPageId: -1
    // The row being filled: where its components go, how many are still to come, the equal share of one
    // and the width used so far (units of the page's 310).
    property var rowLayout: null
    property int rowItemsLeft: 0
    property int rowWidth: 0
    property int rowUsed: 0

    readonly property int fullWidth: 310
    readonly property var factories: loadFactories()

    width: 380
    height: 600
    focus: true

    function loadFactories() {
        var result = {};
        var names = ["LxPage", "LxRow", "LxLabel", "LxLink", "LxCommand", "LxInt", "LxSelect", "LxChannel",
                     "LxDate", "LxTime", "LxChart", "LxBitmap", "LxButton"];
        for (var i = 0; i < names.length; ++i) {
            var component = Qt.createComponent("qrc:///Qml/" + "Qml/" + names[i] + ".qml");
            if (component.status !== Component.Ready)
                console.log("Error creating object", names[i], component.errorString());
            result[names[i]] = component;
        }
        return result;
    }

    function make(name, parent) {
        var component = factories[name];
        var object = component && component.status === Component.Ready ? component.createObject(parent) : null;
        if (!object)
            console.log("Error creating object");
        return object;
    }

    function resetRow() {
        rowLayout = null;
        rowItemsLeft = 0;
        rowWidth = 0;
        rowUsed = 0;
    }

    // The width in units of the next component; inside a row this takes its place in the row.
    function placeWidth(requested) {
        var w = requested === undefined || requested === null || requested < 0 ? -1 : Number(requested);
        if (rowItemsLeft <= 0)
            return w < 0 ? fullWidth : Math.min(w, fullWidth);
        if (w < 0)
            w = rowWidth;
        w = Math.max(0, Math.min(w, fullWidth - rowUsed));
        rowUsed += w;
        rowItemsLeft -= 1;
        // The last of a row takes a sliver that would be left over.
        if (rowItemsLeft === 0 && fullWidth - rowUsed < 10) {
            w += fullWidth - rowUsed;
            rowUsed = fullWidth;
        }
        return w;
    }

    // Creates a component on the current page with the given properties; null (nothing placed) when there
    // is no page or it cannot be created.
    function create(name, params) {
        if (!currentPage)
            return null;
        var p = params || {};
        var inRow = rowItemsLeft > 0 && rowLayout !== null;
        var parent = inRow ? rowLayout : currentPage.getLayout();
        var width = placeWidth(p.pWidth);
        if (inRow && rowItemsLeft === 0)
            resetRow();
        var object = make(name, parent);
        if (!object)
            return null;
        // Visibility is the window's to say (updateVisibility); everything else the component knows is taken.
        for (var key in p) {
            if (key !== "pWidth" && key !== "visible" && key in object)
                object[key] = p[key];
        }
        object.pWidth = width;
        var page = currentPage;
        object.unit = Qt.binding(function () {
            return page.unit;
        });
        components["ID" + currentPageId].push(object);
        if (object.updateValue !== undefined)
            MainWindow.paramsReceived.connect(object, object.updateValue);
        if (object.updateParam !== undefined)
            object.updateParam.connect(function (param, value) {
                busyTimer.restart();
                MainWindow.writeParam(param, value);
            });
        return object;
    }

    function addPage(title, id) {
        resetRow();
        var key = "ID" + id;
        var page = pages[key];
        var created = false;
        if (!page) {
            page = make("LxPage", pageStore);
            if (!page) {
                loading = false;
                return false;
            }
            page.pTitle = title;
            page.pageId = id;
            pages[key] = page;
            components[key] = [];
            created = true;
            loading = true;
            percentLoaded = 0;
        }
        currentPage = page;
        currentPageId = id;
        if (stack.find(function (item) {
            return item === page;
        }))
            stack.pop(page);
        else
            stack.push(page);
        updateVisibility();
        return created;
    }

    function addRow(params) {
        var p = params || {};
        resetRow();
        var row = create("LxRow", p);
        if (!row)
            return false;
        rowLayout = row.getLayout();
        rowItemsLeft = Math.max(0, Number(p.pItems) || 0);
        rowWidth = rowItemsLeft > 0 ? Math.floor(fullWidth / rowItemsLeft) : 0;
        return true;
    }
    function addLabel(params) {
        return create("LxLabel", params) !== null;
    }
    function addLink(params) {
        var link = create("LxLink", params);
        if (!link)
            return false;
        link.clicked.connect(function (pageId, file, wizardMode, meaning) {
            MainWindow.goToPage(pageId, file, wizardMode, meaning);
        });
        return true;
    }
    function addCommand(params) {
        var command = create("LxCommand", params);
        if (!command)
            return false;
        command.clicked.connect(function (cmd, val, meaning, page, wizard) {
            MainWindow.executeCommand(cmd, val, meaning, page, wizard);
        });
        return true;
    }
    function addIntbox(params) {
        return create("LxInt", params) !== null;
    }
    function addSelectbox(params) {
        return create("LxSelect", params) !== null;
    }
    function addChannelbox(params) {
        return create("LxChannel", params) !== null;
    }
    function addDatebox(params) {
        return create("LxDate", params) !== null;
    }
    function addTimebox(params) {
        return create("LxTime", params) !== null;
    }
    function addChart(params) {
        return create("LxChart", params) !== null;
    }
    function addBitmap(params) {
        return create("LxBitmap", params) !== null;
    }
    function addButton(params) {
        var button = create("LxButton", params);
        if (!button)
            return false;
        button.clicked.connect(function (paramId, bitNo, val) {
            busyTimer.restart();
            MainWindow.writeBit(paramId, bitNo, val);
        });
        return true;
    }

    // The current page's components as the device's expressions say.
    function updateVisibility() {
        if (!currentPage)
            return;
        var list = components["ID" + currentPageId];
        for (var i = 0; i < list.length; ++i)
            list[i].visible = MainWindow.isComponentVisible(i);
    }

    function pageLoaded(percent) {
        percentLoaded = percent;
        if (currentPage)
            loading = percent < 100;
    }

    function setStatusMessage(text) {
        statusText.text = text;
        if (text === "") {
            fade.stop();
            statusBox.opacity = 0;
        } else {
            fade.restart();
        }
    }

    // The components of the current page in creation order.
    function currentComponents() {
        return currentPage ? components["ID" + currentPageId] : [];
    }

    function goBack() {
        if (stack.depth <= 1)
            return;
        resetRow();
        stack.pop();
        currentPage = stack.currentItem;
        currentPageId = currentPage.pageId;
        MainWindow.goBackPage();
        updateVisibility();
    }

    Keys.onEscapePressed: goBack()

    Connections {
        target: MainWindow
        function onParamsReceived(params) {
            root.updateVisibility();
        }
    }

    // Pages that are not on the stack wait here, out of sight.
    Item {
        id: pageStore
        visible: false
    }

    Rectangle {
        width: parent.width
        height: 50
        gradient: Gradient {
            GradientStop { position: 0.0; color: "white" }
            GradientStop { position: 0.5; color: "#eee" }
            GradientStop { position: 1.0; color: "white" }
        }
    }
    Rectangle {
        anchors.right: parent.right
        width: Math.min(200, parent.width)
        height: parent.height
        gradient: Gradient {
            orientation: Gradient.Horizontal
            GradientStop { position: 0.0; color: "transparent" }
            GradientStop { position: 1.0; color: "#ddd" }
        }
    }

    StackView {
        id: stack
        objectName: "pageStack"
        anchors.fill: parent
        anchors.bottomMargin: bar.height
        // A page is complete only once it is in place: say so again when the transition ends.
        onBusyChanged: if (!busy) root.pageLoaded(root.percentLoaded)
    }

    Rectangle {
        id: bar
        anchors.bottom: parent.bottom
        width: parent.width
        height: 35
        color: "#22777777"

        ProgressBar {
            anchors.top: parent.top
            width: parent.width
            height: 3
            visible: root.loading && root.currentPage !== null
            value: root.percentLoaded / 100
        }
        Label {
            id: importLink
            objectName: "importLink"
            anchors.left: parent.left
            anchors.leftMargin: 10
            anchors.verticalCenter: parent.verticalCenter
            enabled: !root.loading
            text: "<< Import settings"
            color: enabled ? "#1F4FA0" : "#999"
            font.pointSize: 11
            font.underline: importArea.containsMouse
            MouseArea {
                id: importArea
                anchors.fill: parent
                anchors.margins: -8
                hoverEnabled: true
                cursorShape: Qt.PointingHandCursor
                onClicked: MainWindow.importData()
            }
        }
        Label {
            id: exportLink
            objectName: "exportLink"
            anchors.right: parent.right
            anchors.rightMargin: 10
            anchors.verticalCenter: parent.verticalCenter
            enabled: !root.loading
            text: "Export settings >>"
            horizontalAlignment: Text.AlignRight
            color: enabled ? "#1F4FA0" : "#999"
            font.pointSize: 11
            font.underline: exportArea.containsMouse
            MouseArea {
                id: exportArea
                anchors.fill: parent
                anchors.margins: -8
                hoverEnabled: true
                cursorShape: Qt.PointingHandCursor
                onClicked: MainWindow.exportData()
            }
        }
    }

    Rectangle {
        id: statusBox
        objectName: "statusBox"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.leftMargin: 20
        anchors.rightMargin: 20
        anchors.bottomMargin: 70
        height: 35
        opacity: 0
        visible: opacity > 0
        color: "#884F6CAB"
        border.color: "black"
        border.width: 1

        Text {
            id: statusText
            objectName: "statusText"
            anchors.fill: parent
            anchors.leftMargin: 10
            anchors.rightMargin: 10
            verticalAlignment: Text.AlignVCenter
            color: "white"
            font.pointSize: 12
            elide: Text.ElideRight
        }
        NumberAnimation on opacity {
            id: fade
            running: false
            from: 1
            to: 0
            duration: 3000
            easing.type: Easing.InQuart
        }
    }

    BusyIndicator {
        objectName: "busyIndicator"
        anchors.centerIn: parent
        opacity: 0.6
        running: busyTimer.running
    }
    Timer {
        id: busyTimer
        interval: 600
        repeat: false
    }
}

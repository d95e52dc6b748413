import QtQuick 2.15
import QtQuick.Layouts 1.15

// An image from the program folder: "Devices/<pText>.<pExt>" under AppPath (pExt empty: pText names the
// whole file). The name comes from a device definition, so only a plain relative name inside that folder is
// used; anything else shows nothing.
Item {
    id: bitmap

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property string pExt: ""
    property string pText: ""
    property int pReadOnly: 0
    property int pAlignRight: 0
    property real unit: 1

    readonly property string fileName: pText === "" ? "" : pExt === "" ? pText : pText + "." + pExt
    readonly property bool safeName: fileName !== "" && !/(^|[\/\\])\.\.([\/\\]|$)/.test(fileName)
                                     && !/^[\/\\]/.test(fileName) && !/^[A-Za-z]+:/.test(fileName)
    readonly property url source: safeName ? String(AppPath).replace(/\/?$/, "/") + "Devices/" + fileName : ""

    Layout.preferredWidth: pWidth * unit
    Layout.preferredHeight: pHeight > 0 ? pHeight : Math.max(1, image.implicitHeight)

    Image {
        id: image
        objectName: "image"
        anchors.fill: parent
        anchors.margins: 2
        source: bitmap.source
        fillMode: Image.PreserveAspectFit
        horizontalAlignment: bitmap.pAlignRight ? Image.AlignRight : Image.AlignLeft
        asynchronous: true
        smooth: true
    }
}

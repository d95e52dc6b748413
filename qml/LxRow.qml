import QtQuick 2.15
import QtQuick.Layouts 1.15

// A horizontal row: LxRoot places the next pItems components into getLayout(). No spacing, so that the
// components' widths add up to the page's 310 units exactly; each component pads itself.
RowLayout {
    id: row

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property int pItems: 0
    property int pReadOnly: 0
    property real unit: 1

    function getLayout() {
        return row;
    }

    spacing: 0
    Layout.preferredWidth: (pWidth < 0 ? 310 : pWidth) * unit
    Layout.preferredHeight: pHeight > 0 ? pHeight : -1
}

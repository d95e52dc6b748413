import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// The last pValues readings of parameter pParam, oldest on the left, on a scale from pMin to pMax (raw
// values; the labels divide by 10^pDecimals). Each value update adds one reading.
Item {
    id: chart

    property int pWidth: -1
    property int pHeight: 0
    property int pFont: 0
    property string pText: ""
    property int pMin: 0
    property int pMax: 100
    property int pDecimals: 0
    property int pParam: 0
    property int pReadOnly: 0
    property int pValues: 16
    property real unit: 1

    property var readings: []

    function updateValue(list) {
        for (var i = 0; i < list.length; ++i) {
            if (list[i].id === pParam) {
                var next = readings.concat([list[i].value]);
                readings = next.slice(Math.max(0, next.length - Math.max(2, pValues)));
                canvas.requestPaint();
                return;
            }
        }
    }
    function label(raw) {
        return (raw / Math.pow(10, pDecimals)).toFixed(pDecimals);
    }

    Layout.preferredWidth: pWidth * unit
    Layout.preferredHeight: pHeight > 0 ? pHeight + caption.implicitHeight : 120
    implicitHeight: 120

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 4
        spacing: 2

        Label {
            id: caption
            Layout.fillWidth: true
            visible: text !== ""
            text: chart.pText
            color: "#1c1c1c"
            elide: Text.ElideRight
            font.pointSize: chart.pFont === 2 ? 18 : chart.pFont === 3 ? 9 : 12
            font.bold: chart.pFont > 0
        }
        Canvas {
            id: canvas
            Layout.fillWidth: true
            Layout.fillHeight: true
            onWidthChanged: requestPaint()
            onHeightChanged: requestPaint()
            onPaint: {
                var ctx = getContext("2d");
                ctx.reset();
                ctx.fillStyle = "white";
                ctx.fillRect(0, 0, width, height);
                ctx.strokeStyle = "#bbb";
                ctx.lineWidth = 1;
                ctx.strokeRect(0.5, 0.5, width - 1, height - 1);
                var values = chart.readings;
                var span = chart.pMax - chart.pMin;
                if (values.length < 2 || !(span > 0))
                    return;
                var step = width / (Math.max(2, chart.pValues) - 1);
                var x0 = width - step * (values.length - 1);
                function y(v) {
                    var f = (Math.min(chart.pMax, Math.max(chart.pMin, v)) - chart.pMin) / span;
                    return height - 1 - f * (height - 2);
                }
                ctx.beginPath();
                ctx.moveTo(x0, height);
                for (var i = 0; i < values.length; ++i)
                    ctx.lineTo(x0 + i * step, y(values[i]));
                ctx.lineTo(x0 + (values.length - 1) * step, height);
                ctx.closePath();
                ctx.fillStyle = "red";
                ctx.fill();
                ctx.beginPath();
                for (var j = 0; j < values.length; ++j) {
                    if (j === 0)
                        ctx.moveTo(x0, y(values[0]));
                    else
                        ctx.lineTo(x0 + j * step, y(values[j]));
                }
                ctx.strokeStyle = Qt.darker("red", 3);
                ctx.lineWidth = 2;
                ctx.stroke();
            }

            Label {
                anchors.top: parent.top
                anchors.left: parent.left
                anchors.margins: 2
                text: chart.label(chart.pMax)
                font.pointSize: 8
                color: "#555"
            }
            Label {
                anchors.bottom: parent.bottom
                anchors.left: parent.left
                anchors.margins: 2
                text: chart.label(chart.pMin)
                font.pointSize: 8
                color: "#555"
            }
        }
    }
}

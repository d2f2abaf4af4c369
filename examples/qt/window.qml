// SPDX-License-Identifier: BSD-3-Clause
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ApplicationWindow {
    width: 480
    height: 420
    visible: true
    title: "Packages"

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 12

        Label { text: "Installed"; font.bold: true }
        ListView {
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: packageModel
            delegate: RowLayout {
                width: ListView.view.width
                Label { text: packageId; Layout.fillWidth: true }
                Label { text: version }
            }
        }
        Label { text: "Operations"; font.bold: true }
        ListView {
            Layout.fillWidth: true
            Layout.preferredHeight: 100
            clip: true
            model: operationModel
            delegate: RowLayout {
                width: ListView.view.width
                Label { text: packageId; Layout.fillWidth: true }
                ProgressBar { value: progress }
                Label { text: model.state; Layout.preferredWidth: 140 }
            }
        }
    }
}

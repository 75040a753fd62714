#pragma once

#include "core/Seams.h"

class QWidget;

// The real implementations of the seams that need the widgets: message boxes and file dialogs.
namespace spinlane {

class WidgetMessageBoxes : public MessageBoxes {
public:
    MsgAnswer show(const MessageBoxRequest& request) override;
};

class WidgetFileDialogs : public FileDialogs {
public:
    QString openFile(const FileDialogRequest& request) override;
    QString saveFile(const FileDialogRequest& request) override;
};

// "(*.ini)|*.ini|(*.*)|*.*" as Qt name filters: "(*.ini);;(*.*)".
QString qtNameFilters(const QString& descriptionPatternPairs);

// Keeps a widget's window above all other windows, or releases it, without hiding, moving or
// resizing it.
void stay_on_top(QWidget* window, bool onTop);

} // namespace spinlane

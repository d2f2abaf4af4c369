// SPDX-License-Identifier: BSD-3-Clause
//
// A window with the installed packages and the operations, in GTK 4. GTK runs the main loop in which
// the library delivers its events. With an argument, it saves a picture of itself to that file once an
// operation has ended, and closes.

#include "lines.h"
#include "picture.h"

#include <emporium/emporium.h>

#include <gtk/gtk.h>

#include <string>

namespace {

using namespace Emporium;

struct Application
{
    Lines packages;
    Lines operations;
    GtkWidget* window = nullptr;
    std::string picture;
    int framesLeft = -1;
    int status = 0;
};

void Show(Lines& lines, const Package& package)
{
    lines.Put(package.GetID(), package.GetID() + "   " + package.GetVersion());
}

void Show(Application& application, const Operation& operation)
{
    const Common::ErrorCodeHelper error(static_cast<int>(operation.GetErrorCode()));
    const bool failed = operation.GetStatus() == Common::OperationStatus::Failed;
    const std::string number = std::to_string(static_cast<int>(operation.GetStatus()));
    application.operations.Put(
        operation.GetUUID(), operation.GetPackageID() + "   " +
                                 (failed ? "failed: " + error.errorCodeAsString() : number + " %"));
    if (IsFinished(operation.GetStatus()) && !application.picture.empty()) {
        application.framesLeft = 3; // until the lists have been laid out and drawn
    }
}

gboolean OnFrame(GtkWidget*, GdkFrameClock*, gpointer data)
{
    auto& application = *static_cast<Application*>(data);
    if (application.framesLeft == 0) {
        return G_SOURCE_CONTINUE;
    }
    --application.framesLeft;
    if (application.framesLeft > 0) {
        return G_SOURCE_CONTINUE;
    }
    application.status = SavePicture(application.window, application.picture) ? 0 : 1;
    gtk_window_destroy(GTK_WINDOW(application.window));
    return G_SOURCE_REMOVE;
}

void AddList(GtkWidget* box, const char* title, const Lines& lines)
{
    const auto bind = +[](gpointer item, gpointer) -> GtkWidget* {
        GtkWidget* const label =
            gtk_label_new(gtk_string_object_get_string(GTK_STRING_OBJECT(item)));
        gtk_label_set_xalign(GTK_LABEL(label), 0);
        return label;
    };
    GtkWidget* const list = gtk_list_box_new();
    gtk_list_box_bind_model(GTK_LIST_BOX(list), lines.Model(), bind, nullptr, nullptr);
    gtk_list_box_set_selection_mode(GTK_LIST_BOX(list), GTK_SELECTION_NONE);
    gtk_box_append(GTK_BOX(box), gtk_label_new(title));
    gtk_box_append(GTK_BOX(box), list);
}

void OpenWindow(Application& application)
{
    application.window = gtk_window_new();
    gtk_window_set_title(GTK_WINDOW(application.window), "Packages");
    gtk_window_set_default_size(GTK_WINDOW(application.window), 480, 420);
    GtkWidget* const box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    AddList(box, "Installed", application.packages);
    AddList(box, "Operations", application.operations);
    gtk_window_set_child(GTK_WINDOW(application.window), box);
    gtk_widget_add_tick_callback(application.window, OnFrame, &application, nullptr);
    const auto forget =
        +[](GtkWidget*, gpointer data) { static_cast<Application*>(data)->window = nullptr; };
    g_signal_connect(application.window, "destroy", G_CALLBACK(forget), &application);
    gtk_window_present(GTK_WINDOW(application.window));
}

} // namespace

int main(int argc, char** argv)
{
    Application application;
    application.picture = argc > 1 ? argv[1] : "";
    const auto connection = GetDaemonConnection();
    if (!connection || gtk_init_check() == FALSE) {
        return 3;
    }
    for (const Package& package : connection.GetPackageList()) {
        Show(application.packages, package);
    }
    const PackageCallback put = [&](const Package& package) {
        Show(application.packages, package);
    };
    const PackageCallback remove = [&](const Package& package) {
        application.packages.Remove(package.GetID());
    };
    const OperationCallback changed = [&](const Operation& operation) {
        Show(application, operation);
    };
    const auto installed = connection.SubscribeToEvent(EventType::PackageInstalled, put);
    const auto upgraded = connection.SubscribeToEvent(EventType::PackageUpgraded, put);
    const auto removed = connection.SubscribeToEvent(EventType::PackageRemoved, remove);
    const auto followed = connection.SubscribeToEvent(EventType::OperationStatusChanged, changed);
    OpenWindow(application);
    while (application.window != nullptr) {
        g_main_context_iteration(nullptr, TRUE);
    }
    return application.status;
}

// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gtk/gtk.h>

#include <string>

/// Saves what a window shows to a PNG file.
inline bool SavePicture(GtkWidget* window, const std::string& file)
{
    GdkPaintable* const paintable = gtk_widget_paintable_new(window);
    GtkSnapshot* const snapshot = gtk_snapshot_new();
    gdk_paintable_snapshot(paintable, GDK_SNAPSHOT(snapshot),
                           gdk_paintable_get_intrinsic_width(paintable),
                           gdk_paintable_get_intrinsic_height(paintable));
    GskRenderNode* const node = gtk_snapshot_free_to_node(snapshot);
    GskRenderer* const renderer = gtk_native_get_renderer(GTK_NATIVE(window));
    GdkTexture* const texture = gsk_renderer_render_texture(renderer, node, nullptr);
    const bool saved = gdk_texture_save_to_png(texture, file.c_str()) != FALSE;
    g_object_unref(texture);
    gsk_render_node_unref(node);
    g_object_unref(paintable);
    return saved;
}

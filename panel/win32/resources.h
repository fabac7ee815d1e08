/* SPDX-License-Identifier: MIT */
/* What quorel_panel.rc and the window call by the same number. */
#pragma once

#define QUOREL_PANEL_ICON 1
#define QUOREL_PANEL_SAVE_AS 2
#define QUOREL_PANEL_NAME 3

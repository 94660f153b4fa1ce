// Everything that the platform declares, but for its log.
#pragma once

#include <fa_platform/bluetooth.h>
#include <fa_platform/debug_menu.h>
#include <fa_platform/display_panel.h>
#include <fa_platform/factory.h>
#include <fa_platform/simulation.h>
#include <fa_platform/system_info.h>
#include <fa_platform/video_enhance.h>

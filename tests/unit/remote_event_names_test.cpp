// The shared event vocabulary: name texts, their order in the two lists, and that the lists
// hold copies.
#include <gtest/gtest.h>

#include <utility>

#include "orbperix/remote_ctrl_event.h"

namespace {

TEST(RemoteEventNames, ListsHoldTheNamesInWireTableOrder) {
    const std::pair<const std::string*, const char*> basic[] = {
        {&LEFT_POINT_DOWN, "left_point_down"},   {&LEFT_POINT_UP, "left_point_up"},
        {&LEFT_MOVE, "left_move"},               {&LEFT_KEY_DOWN, "left_key_down"},
        {&LEFT_KEY_UP, "left_key_up"},           {&ZOOM, "zoom"},
        {&VERTICAL_SCROLL, "vertical_scroll"},   {&HORIZONTAL_SCROLL, "horizontal_scroll"},
        {&ROTATE, "rotate"},                     {&MOUSE_DOWN, "mouse_down"},
        {&MOUSE_UP, "mouse_up"},                 {&MOUSE_MOVE, "mouse_move"},
        {&VERTICAL_WHEEL, "vertical_wheel"},     {&HORIZONTAL_WHEEL, "horizontal_wheel"},
    };
    const std::pair<const std::string*, const char*> extended[] = {
        {&INPUT_CONTENT, "input_content"},
        {&INPUT_FOCUS, "input_focus"},
        {&VIRTUALKEY_BACK, "virtualkey_back"},
        {&VIRTUALKEY_HOME, "virtualkey_home"},
        {&VIRTUALKEY_RECENT_APP, "virtualkey_recent_app"},
        {&VIRTUALKEY_QUICK_SETTING, "virtualkey_quick_setting"},
        {&MESSAGE_EXTEND, "message_extend"},
        {&MESSAGE_RESERVED, "message_reserved"},
    };
    static_assert(sizeof(BASIC_EVENT_NAMES) / sizeof(BASIC_EVENT_NAMES[0]) == 14, "14 names");
    static_assert(sizeof(EXTENDED_EVENT_NAMES) / sizeof(EXTENDED_EVENT_NAMES[0]) == 8, "8 names");
    for (size_t i = 0; i < 14; ++i) {
        EXPECT_EQ(*basic[i].first, basic[i].second);
        EXPECT_EQ(BASIC_EVENT_NAMES[i], basic[i].second) << i;
        EXPECT_NE(&BASIC_EVENT_NAMES[i], basic[i].first) << "a copy, not the constant itself";
    }
    for (size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(*extended[i].first, extended[i].second);
        EXPECT_EQ(EXTENDED_EVENT_NAMES[i], extended[i].second) << i;
        EXPECT_NE(&EXTENDED_EVENT_NAMES[i], extended[i].first);
    }
}

}  // namespace

// Default package of the video module: every channel's streams configured
// as a typical 1080p camera leaves them (main: H.265 at 25 frames per
// second and 4 Mbit/s; minor: H.264 at 640x360), so a fresh root reads as
// a working recorder, with values inside the rows' limits (bit rate 32..8192
// kbit/s, frame rate stored as 65536 + frames per second, 1..25).
#include <string>

#include "families.h"
#include "generic_defaults.h"

namespace {

const char kMain[] =
    "\toption resolution '1920*1080'\n"
    "\toption encode_type 'H.265'\n"
    "\toption bitrate_type 'VBR'\n"
    "\toption main_bitrate '4096'\n"
    "\toption main_frame_rate '65561'\n"
    "\toption gop '50'\n";

const char kMinor[] =
    "\toption resolution '640*360'\n"
    "\toption encode_type 'H.264'\n"
    "\toption bitrate_type 'VBR'\n"
    "\toption bitrate '512'\n"
    "\toption frame_rate '65551'\n"
    "\toption gop '30'\n";

const char kMainCapability[] =
    "\tlist resolution '3840*2160'\n"
    "\tlist resolution '2560*1440'\n"
    "\tlist resolution '1920*1080'\n"
    "\tlist resolution '1280*720'\n"
    "\toption max_frame_rate '25'\n"
    "\toption max_bitrate '8192'\n";

const char kMinorCapability[] =
    "\tlist resolution '704*576'\n"
    "\tlist resolution '640*360'\n"
    "\tlist resolution '352*288'\n"
    "\toption max_frame_rate '25'\n"
    "\toption max_bitrate '1024'\n";

struct stream_row {
    const char *suffix, *type, *options;
};

const stream_row kRows[] = {
    {.suffix = "_main", .type = "main", .options = kMain},
    {.suffix = "_minor", .type = "minor", .options = kMinor},
    {.suffix = "_main_video_capability", .type = "main_video_capability", .options = kMainCapability},
    {.suffix = "_minor_video_capability", .type = "minor_video_capability", .options = kMinorCapability},
    {.suffix = nullptr, .type = nullptr, .options = nullptr},
};

} // namespace

int mkconfig_write_video(const char *confdir, int channels)
{
    std::string text;
    for (int ch = 1; ch <= channels; ch++) {
        for (const stream_row *r = kRows; r->suffix; r++)
            text += "\nconfig " + std::string(r->type) + " 'chn" + std::to_string(ch) + r->suffix + "'\n" +
                    r->options;
    }
    return mkconfig_write_package(confdir, "video", text + "\n");
}

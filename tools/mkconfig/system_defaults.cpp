// Default packages of the system modules: the device's name (the backup
// header carries it), the accounts (administrator "admin" / "admin", to be
// changed at first login), and the login lock (three tries).
#include <string>

#include "families.h"
#include "generic_defaults.h"

namespace {

const char kDeviceInfo[] =
    "\nconfig info 'info'\n"
    "\toption device_name 'NVR'\n"
    "\toption model 'NVR-128'\n\n";

const char kUsers[] =
    "\nconfig root 'root'\n"
    "\toption username 'admin'\n"
    "\toption passwd 'admin'\n"
    "\toption authority '0'\n"
    "\n"
    "config authentication 'authentication'\n"
    "\toption basic_enabled '0'\n"
    "\toption encrypt_type 'plain'\n\n";

std::string unusual_detection(int channels)
{
    std::string out = "\nconfig login_error 'login_error'\n\toption enabled 'on'\n\toption max_times '3'\n";
    for (int ch = 1; ch <= channels; ch++)
        out += "\nconfig video_miss 'chn" + std::to_string(ch) + "_video_miss'\n";
    int ports = channels < 16 ? channels : 16;
    for (int p = 1; p <= ports; p++) {
        out += "\nconfig shortcut 'port" + std::to_string(p) + "_shortcut'\n";
        out += "\nconfig power_overload 'port" + std::to_string(p) + "_power_overload'\n";
    }
    return out + "\n";
}

} // namespace

int mkconfig_write_system(const char *confdir, int channels)
{
    if (mkconfig_write_package(confdir, "device_info", kDeviceInfo) != 0 ||
        mkconfig_write_package(confdir, "user_management", kUsers) != 0 ||
        mkconfig_write_package(confdir, "unusual_detection", unusual_detection(channels)) != 0 ||
        mkconfig_write_package(confdir, "system", "\nconfig system 'sys'\n\toption debug_mode '0'\n\n") != 0)
        return -1;
    return 0;
}

// SPDX-License-Identifier: MIT
// vxemu: runs a command against an emulated vxa2xxx driver and its adapters.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "run_command.h"

#ifdef VXEMU_HAVE_MKIMAGE
int vxemu_mkimage_main(int argc, char **argv);
#endif

namespace {

constexpr const char kHelp[] =
    "Usage:\n"
    "  vxemu run [--host FILE] [--state DIR] [--log FILE] -- COMMAND [ARGS...]\n"
    "  vxemu mkimage ...            (see vxemu mkimage --help)\n"
    "  vxemu --help\n"
    "\n"
    "run: runs COMMAND as root in a private sandbox (mount, IPC, UTS and PID namespaces)\n"
    "where the vxa2xxx driver and its adapters are emulated:\n"
    "  /sys           served by vxemu (PCI devices, SCSI and FC hosts, flash attributes)\n"
    "  /dev           private, with the driver node /dev/vxa2xxx (char 1:3); no other\n"
    "                 device node can be created\n"
    "  /proc          of COMMAND's own PID namespace; /proc/devices and\n"
    "                 /proc/sys/kernel/ostype as the host description says\n"
    "  /etc, /usr/lib writable overlays; changes land in the state directory\n"
    "  /tmp           fresh and empty, except the working directory, which stays visible\n"
    "  System V IPC   private to the run\n"
    "Driver requests (ioctl on the node, netlink) are answered by vxemu, which serves\n"
    "until the last process of COMMAND is gone, then writes the state.\n"
    "\n"
    "  --host FILE    host description (JSON); default: the built-in lab host\n"
    "  --state DIR    state directory; default: a scratch directory removed afterwards.\n"
    "                 It must be root's and writable by nobody else, like the\n"
    "                 directories above it (sticky ones such as /tmp aside)\n"
    "  --log FILE     traffic log; default: STATE/traffic.jsonl\n"
    "\n"
    "State directory:\n"
    "  adapters/NAME/flash.bin      flash of each adapter\n"
    "  adapters/NAME/nvram.FN.bin   NVRAM block of each PCI function\n"
    "  adapters/NAME/vpd.FN.bin     VPD block of each PCI function\n"
    "  etc-upper/, usrlib-upper/    what COMMAND changed below /etc and /usr/lib\n"
    "  traffic.jsonl                one JSON object per request or attribute access\n"
    "A second run with the same state directory starts from what the first one left.\n"
    "\n"
    "Traffic log: one JSON object per line, in the order the driver saw them:\n"
    "  kind       \"ioctl\", \"attr\" (sysfs attribute) or \"netlink\"\n"
    "  pid        the calling thread\n"
    "  adapter, function        the adapter's name and PCI function index\n"
    "  command, subcode, layout  ioctl command, sub-code, \"current\" or \"old\" header\n"
    "  attribute, op, text       attribute name, open/read/write, optrom_ctl command\n"
    "  region, offset, length    the flash window or the bytes moved\n"
    "  status     the driver's Status word, or -errno for a failed call\n"
    "  fault      the injected fault that fired\n"
    "  violation  why the request was malformed\n"
    "\n"
    "Exit status:\n"
    "  COMMAND's status (128 + signal number if it was killed by a signal)\n"
    "  86   COMMAND ran, but the driver saw at least one malformed request\n"
    "  125  vxemu could not load the host or build the sandbox\n"
    "  127  COMMAND was not found\n"
    "  2    bad vxemu command line\n";

int usage_error(const std::string &msg) {
    std::fprintf(stderr, "vxemu: %s\nTry 'vxemu --help'.\n", msg.c_str());
    return vxemu::kExitUsage;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        if (argc < 2) return usage_error("no command given");
        const std::string cmd = argv[1];
        if (cmd == "--help" || cmd == "-h" || cmd == "help") {
            std::fputs(kHelp, stdout);
            return 0;
        }
        if (cmd == "run") {
            vxemu::RunOptions opts;
            std::string error;
            if (!vxemu::parse_run_args(std::vector<std::string>(argv + 2, argv + argc), opts, error))
                return usage_error(error);
            return vxemu::run_command(opts);
        }
        if (cmd == "mkimage") {
#ifdef VXEMU_HAVE_MKIMAGE
            return vxemu_mkimage_main(argc - 1, argv + 1);
#else
            return usage_error("mkimage is not built in");
#endif
        }
        return usage_error("unknown command '" + cmd + "'");
    } catch (const std::exception &e) {
        std::fprintf(stderr, "vxemu: %s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "vxemu: unexpected failure\n");
    }
    return vxemu::kExitSetup;
}

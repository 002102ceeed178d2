// SPDX-License-Identifier: MIT
// vxemu: runs a command against an emulated vxa2xxx driver and its adapters.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "chipdata.h"
#include "command_line.h"
#include "control_channel.h"
#include "run_command.h"
#include "show_command.h"

#ifdef VXEMU_HAVE_MKIMAGE
int vxemu_mkimage_main(int argc, char **argv);
#endif

namespace {

constexpr const char kHelp[] =
    "Usage:\n"
    "  vxemu run [--host FILE] [--state DIR] [--log FILE] -- COMMAND [ARGS...]\n"
    "  vxemu show [--json] STATE    what the adapters of a state directory hold\n"
    "  vxemu diff [--json] STATE_A STATE_B\n"
    "                               what changed between two states\n"
    "  vxemu capture --out DIR      describe this host's real adapters for vxemu run\n"
    "  vxemu chips                  list the chips a host description accepts\n"
    "  vxemu mkimage ...            (see vxemu mkimage --help)\n"
    "  vxemu event ...              (see vxemu event --help)\n"
    "  vxemu --help | --version\n"
    "  vxemu COMMAND --help         help on one command\n"
    "\n";

constexpr const char kRunHelp[] =
    "run: runs COMMAND as root in a private sandbox (mount, IPC, UTS and PID namespaces)\n"
    "where the vxa2xxx driver and its adapters are emulated:\n"
    "  /sys           served by vxemu (PCI devices, SCSI and FC hosts, flash attributes)\n"
    "  /dev           private, with the driver node /dev/vxa2xxx (char 1:3); no other\n"
    "                 device node can be created\n"
    "  /proc          of COMMAND's own PID namespace; /proc/devices and\n"
    "                 /proc/sys/kernel/ostype as the host description says\n"
    "  /etc, /usr/lib, /var/lib\n"
    "                 writable overlays; changes land in the state directory\n"
    "  /tmp           fresh and empty, except the working directory, which stays visible\n"
    "  System V IPC   private to the run\n"
    "Driver requests (ioctl on the node, netlink) are answered by vxemu, which serves\n"
    "until the last process of COMMAND is gone, then writes the state.\n"
    "\n"
    "Options of run (\"--opt value\" and \"--opt=value\" alike):\n"
    "  -H, --host FILE   host description (JSON); default: the built-in lab host\n"
    "  -s, --state DIR   state directory; default: a scratch directory removed afterwards.\n"
    "                    It must be root's and writable by nobody else, like the\n"
    "                    directories above it (sticky ones such as /tmp aside)\n"
    "  -l, --log FILE    traffic log; default: STATE/traffic.jsonl\n"
    "  -S, --seed N      seed of the seeded faults; replaces the host's \"seed\"\n"
    "  -P, --power-cut N the power fails during the Nth store into a flash, NVRAM or\n"
    "                    VPD: the rest of that store is left erased, nothing is stored\n"
    "                    after it and COMMAND is killed (status 137)\n"
    "  -h, --help        this help\n"
    "\n"
    "State directory:\n"
    "  adapters/NAME/flash.bin      flash of each adapter\n"
    "  adapters/NAME/nvram.FN.bin   NVRAM block of each PCI function\n"
    "  adapters/NAME/vpd.FN.bin     VPD block of each PCI function\n"
    "  etc-upper/, usrlib-upper/    what COMMAND changed below /etc and /usr/lib\n"
    "  varlib-upper/                what COMMAND changed below /var/lib (flashwright's\n"
    "                               update journal lives there)\n"
    "  traffic.jsonl                one JSON object per request or attribute access\n"
    "  traffic.N.jsonl              the logs of earlier runs, 1 the oldest\n"
    "  host.json                    the host description of the last run\n"
    "  .run/control                 while running: `vxemu event` raises driver events here\n"
    "A second run with the same state directory starts from what the first one left.\n"
    "\n"
    "Traffic log: one JSON object per line, in the order the driver saw them:\n"
    "  kind       \"ioctl\", \"attr\" (sysfs attribute) or \"netlink\"\n"
    "  pid        the calling thread\n"
    "  adapter, function        the adapter's name and PCI function index\n"
    "  command, subcode, layout  ioctl command, sub-code, \"current\" or \"old\" header\n"
    "  attribute, op, text       attribute name, open/read/write, optrom_ctl command;\n"
    "                            text also holds a SCSI command's bytes (its LUN in\n"
    "                            offset, its opcode in region), \"enable\"/\"disable\"\n"
    "                            of event reporting, or a netlink bulk chunk\n"
    "  region, offset, length    the flash window or the bytes moved\n"
    "  status     the driver's Status word, or -errno for a failed call\n"
    "  fault      the injected fault that fired\n"
    "  violation  why the request was malformed\n"
    "\n"
    "Exit status:\n"
    "  COMMAND's status (128 + signal number if it was killed by a signal)\n"
    "  86   COMMAND ran, but the driver saw at least one malformed request\n"
    "  125  vxemu could not load the host or build the sandbox (also when not run as root)\n"
    "  127  COMMAND was not found\n"
    "  2    bad vxemu command line\n";

constexpr const char kRunUsage[] = "Usage: vxemu run [--host FILE] [--state DIR] [--log FILE] [--] COMMAND [ARGS...]\n\n";
constexpr const char kChipsHelp[] =
    "Usage: vxemu chips\n"
    "\n"
    "Lists the chips a host description accepts (\"chip\" of an adapter): the PCI\n"
    "device ID, the family, the flash size, the NVRAM and parameter block format\n"
    "and whether the flash carries a firmware image.\n";

int usage_error(const std::string &msg, const char *command = nullptr) {
    std::fprintf(stderr, "vxemu: %s\nTry 'vxemu %s%s--help'.\n", msg.c_str(), command != nullptr ? command : "",
                 command != nullptr ? " " : "");
    return vxemu::kExitUsage;
}

// Options of a command that takes none but --help; true when help was asked.
bool only_help(int argc, char **argv, int &status) {
    static constexpr vxemu::OptionSpec kHelpOnly[] = {{"help", 'h', false}};
    vxemu::ParsedOptions parsed;
    std::string error;
    if (!vxemu::parse_options(argc, argv, kHelpOnly, parsed, error)) {
        status = usage_error(error, argv[0]);
        return true;
    }
    if (!parsed.operands.empty()) {
        status = usage_error("unexpected argument '" + parsed.operands[0] + "'", argv[0]);
        return true;
    }
    return !parsed.options.empty();
}

// `vxemu capture` is a program of its own, built on the library vxemu never
// links: run the one installed beside this vxemu (never one found on PATH,
// since vxemu runs as root).
int exec_capture(int argc, char **argv) {
    std::error_code ec;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec) {
        std::fprintf(stderr, "vxemu: capture: cannot find my own location: %s\n", ec.message().c_str());
        return vxemu::kExitSetup;
    }
    const std::string prog = (self.parent_path() / "vxemu-capture").string();
    std::vector<char *> args{const_cast<char *>(prog.c_str())};
    for (int i = 1; i < argc; ++i) args.push_back(argv[i]);
    args.push_back(nullptr);
    ::execv(prog.c_str(), args.data());
    std::fprintf(stderr, "vxemu: capture: %s: %s\n", prog.c_str(), std::strerror(errno));
    return 127;
}

int list_chips() {
    std::printf("%-8s %-9s %-7s %-9s %-13s %s\n", "CHIP", "DEVICE", "FAMILY", "FLASH", "NVRAM", "FIRMWARE");
    for (const vxemu::ChipInfo &c : vxemu::all_chips()) {
        const std::string nvram = c.fcx14x_class ? "extended/512" : "basic/256";
        std::printf("%-8.*s 0x%04X    %-7.*s %4u KiB  %-13s %s\n", static_cast<int>(c.name.size()), c.name.data(),
                    c.device_id, static_cast<int>(c.family.size()), c.family.data(), c.flash_size / 1024, nvram.c_str(),
                    c.has_firmware ? "yes" : "no");
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        if (argc < 2) return usage_error("no command given");
        const std::string cmd = argv[1];
        if (cmd == "--help" || cmd == "-h" || cmd == "help") {
            std::fputs(kHelp, stdout);
            std::fputs(kRunHelp, stdout);
            return 0;
        }
        if (cmd == "--version" || cmd == "-V") {
            std::printf("vxemu %s\n", VXEMU_VERSION);
            return 0;
        }
        if (cmd == "run") {
            vxemu::RunOptions opts;
            std::string error;
            if (!vxemu::parse_run_args(argc - 1, argv + 1, opts, error)) return usage_error(error, "run");
            if (opts.help) {
                std::fputs(kRunUsage, stdout);
                std::fputs(kRunHelp, stdout);
                return 0;
            }
            return vxemu::run_command(opts);
        }
        if (cmd == "chips") {
            int status = 0;
            if (only_help(argc - 1, argv + 1, status)) {
                if (status == 0) std::fputs(kChipsHelp, stdout);
                return status;
            }
            return list_chips();
        }
        if (cmd == "show") return vxemu::show_main(argc - 1, argv + 1);
        if (cmd == "diff") return vxemu::diff_main(argc - 1, argv + 1);
        if (cmd == "capture") return exec_capture(argc - 1, argv + 1);
        if (cmd == "event") return vxemu::event_main(argc - 1, argv + 1);
        if (cmd == "mkimage") {
#ifdef VXEMU_HAVE_MKIMAGE
            return vxemu_mkimage_main(argc - 1, argv + 1);
#else
            return usage_error("mkimage is not built in");
#endif
        }
        if (cmd.starts_with("-")) return usage_error("unknown option " + cmd);
        return usage_error("unknown command '" + cmd + "'");
    } catch (const std::exception &e) {
        std::fprintf(stderr, "vxemu: %s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "vxemu: unexpected failure\n");
    }
    return vxemu::kExitSetup;
}

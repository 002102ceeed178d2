/* SPDX-License-Identifier: MIT */
/* A raw client of the emulated driver: builds request headers byte by byte at
 * their documented offsets (independently of the emulator's own declarations),
 * issues one ioctl or netlink exchange per invocation and prints the outcome
 * as "key=value" words for the test scripts. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

static int g_old; /* use the older 88-byte header */
static int g_fd = -1;

static void put16(uint8_t *p, size_t off, uint16_t v) { p[off] = (uint8_t)v; p[off + 1] = (uint8_t)(v >> 8); }
static void put32(uint8_t *p, size_t off, uint32_t v) { for (int i = 0; i < 4; ++i) p[off + i] = (uint8_t)(v >> (8 * i)); }
static void put64(uint8_t *p, size_t off, uint64_t v) { for (int i = 0; i < 8; ++i) p[off + i] = (uint8_t)(v >> (8 * i)); }
static uint16_t get16(const uint8_t *p, size_t off) { return (uint16_t)(p[off] | p[off + 1] << 8); }
static uint32_t get32(const uint8_t *p, size_t off) { return (uint32_t)p[off] | (uint32_t)p[off + 1] << 8 | (uint32_t)p[off + 2] << 16 | (uint32_t)p[off + 3] << 24; }

static const char g_sig[8] = "VARNIX";

struct req {
    uint8_t cmd;
    uint16_t sub, inst, hba;
    uint32_t reserved1, reqlen, resplen;
    void *reqbuf, *respbuf;
    /* reply */
    uint32_t status, detail, resplen_out;
    uint16_t inst_out;
    int rc, err;
};

/* Header offsets: current layout / older layout. */
#define OFF_REQADR (g_old ? 40 : 36)
#define OFF_RESPADR (g_old ? 48 : 44)
#define OFF_HBA (g_old ? 56 : 52)

static uint8_t g_hdr[116];

static void build(struct req *r) {
    memset(g_hdr, 0, sizeof g_hdr);
    if (g_old) put64(g_hdr, 0, (uint64_t)(uintptr_t)g_sig);
    else memcpy(g_hdr, g_sig, 8);
    put16(g_hdr, 8, 2);
    put16(g_hdr, 10, g_old ? 5 : 7);
    put16(g_hdr, 12, r->sub);
    put16(g_hdr, 14, r->inst);
    put32(g_hdr, 24, r->reserved1);
    put32(g_hdr, 28, r->reqlen);
    put32(g_hdr, 32, r->resplen);
    put64(g_hdr, OFF_REQADR, (uint64_t)(uintptr_t)r->reqbuf);
    put64(g_hdr, OFF_RESPADR, (uint64_t)(uintptr_t)r->respbuf);
    put16(g_hdr, OFF_HBA, r->hba);
    if (!g_old) put64(g_hdr, 76, 2);
}

static unsigned long number(uint8_t cmd) { return g_old ? (0xC0087900UL | cmd) : (0xC0747900UL | cmd); }

static void send_hdr(struct req *r, unsigned long nr) {
    errno = 0;
    r->rc = ioctl(g_fd, nr, g_hdr);
    r->err = r->rc < 0 ? errno : 0;
    r->status = get32(g_hdr, 16);
    r->detail = get32(g_hdr, 20);
    r->resplen_out = get32(g_hdr, 32);
    r->inst_out = get16(g_hdr, 14);
}

static void issue(struct req *r) {
    build(r);
    send_hdr(r, number(r->cmd));
}

static void print_outcome(const struct req *r) {
    if (r->rc < 0) printf("rc=-1 errno=%d", r->err);
    else printf("rc=0 status=%u detail=%u resplen=%u", r->status, r->detail, r->resplen_out);
}

static void hex(const char *key, const uint8_t *p, size_t n) {
    printf(" %s=", key);
    for (size_t i = 0; i < n; ++i) printf("%02x", p[i]);
}

static int write_file(const char *path, const void *data, size_t n) {
    FILE *f = fopen(path, "wb");
    if (f == NULL || fwrite(data, 1, n, f) != n) return -1;
    return fclose(f);
}

static uint8_t *read_file(const char *path, size_t *n) {
    FILE *f = fopen(path, "rb");
    if (f == NULL) return NULL;
    fseek(f, 0, SEEK_END);
    long len = ftell(f);
    fseek(f, 0, SEEK_SET);
    uint8_t *buf = malloc(len > 0 ? (size_t)len : 1);
    *n = fread(buf, 1, (size_t)len, f);
    fclose(f);
    return buf;
}

static unsigned long num(const char *s) { return strtoul(s, NULL, 0); }

static int usage(void) {
    fprintf(stderr, "usage: vxemu_probe [-o] COMMAND ...\n");
    return 2;
}

static int do_netlink(int argc, char **argv) {
    /* nl HOSTNO CMD [MODE [badlen|nowait]] */
    if (argc < 3) return usage();
    int s = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, 20);
    if (s < 0) { printf("socket errno=%d\n", errno); return 1; }
    struct timeval tv = {2, 0}; /* never hang a test on a reply that does not come */
    setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    struct sockaddr_nl me = {.nl_family = AF_NETLINK, .nl_pid = (uint32_t)getpid()};
    if (bind(s, (struct sockaddr *)&me, sizeof me) != 0) { printf("bind errno=%d\n", errno); return 1; }
    struct sockaddr_nl got = {0};
    socklen_t gl = sizeof got;
    if (getsockname(s, (struct sockaddr *)&got, &gl) != 0 || got.nl_family != AF_NETLINK) { printf("getsockname failed\n"); return 1; }
    static uint8_t msg[2096], reply[4096];
    memset(msg, 0, sizeof msg);
    put32(msg, 0, 2096);
    put16(msg, 4, 17);
    put32(msg, 12, (uint32_t)getpid());
    msg[16] = 1;
    put16(msg, 18, 0xA1B2);
    put16(msg, 20, 0x8000);
    put64(msg, 24, ((uint64_t)0x1DE5 << 48) | ((uint64_t)0x84DD << 32) | 0xFCAB1FC1u);
    put16(msg, 32, (uint16_t)num(argv[1]));
    put32(msg, 36, (uint32_t)num(argv[2]));
    /* port parameters: destination type 2 (port name), mode */
    put16(msg, 44 + 8, 2);
    put16(msg, 44 + 16, argc > 3 ? (uint16_t)num(argv[3]) : 0);
    if (argc > 4 && strcmp(argv[4], "badlen") == 0) put32(msg, 0, 2000);
    struct sockaddr_nl kernel = {.nl_family = AF_NETLINK};
    struct iovec iov = {msg, sizeof msg};
    struct msghdr mh = {.msg_name = &kernel, .msg_namelen = sizeof kernel, .msg_iov = &iov, .msg_iovlen = 1};
    if (sendmsg(s, &mh, 0) != (ssize_t)sizeof msg) { printf("sendmsg errno=%d\n", errno); return 1; }
    /* "nowait": read the reply the way the library does, without waiting for it */
    const int nowait = argc > 4 && strcmp(argv[4], "nowait") == 0;
    ssize_t n = recv(s, reply, sizeof reply, nowait ? MSG_DONTWAIT : 0);
    if (n < 16 + 20) { printf("recv n=%zd\n", n); return 1; }
    printf("len=%zd error=%u speed=%u\n", n, get32(reply, 16 + 16), get16(reply, 16 + 20 + 18));
    close(s);
    return 0;
}

/* The SCSI transport socket: bound to the FC event group and joined to it. */
static int do_transport_socket(void) {
    int s = socket(AF_NETLINK, SOCK_DGRAM, 18);
    if (s < 0) { printf("socket errno=%d\n", errno); return 1; }
    struct sockaddr_nl me = {.nl_family = AF_NETLINK, .nl_pid = (uint32_t)getpid(), .nl_groups = 4};
    int b = bind(s, (struct sockaddr *)&me, sizeof me);
    int group = 4;
    int j = setsockopt(s, 270 /* SOL_NETLINK */, 1 /* NETLINK_ADD_MEMBERSHIP */, &group, sizeof group);
    char buf[64];
    ssize_t n = recv(s, buf, sizeof buf, MSG_DONTWAIT);
    printf("bind=%d join=%d recv=%zd errno=%d\n", b, j, n, n < 0 ? errno : 0);
    close(s);
    return 0;
}

int main(int argc, char **argv) {
    int a = 1;
    if (a < argc && strcmp(argv[a], "-o") == 0) { g_old = 1; ++a; }
    if (a >= argc) return usage();
    const char *cmd = argv[a];
    argc -= a;
    argv += a;
    if (strcmp(cmd, "nl") == 0) return do_netlink(argc, argv);
    if (strcmp(cmd, "nl18") == 0) return do_transport_socket();
    const char *node = getenv("VXPROBE_NODE") ? getenv("VXPROBE_NODE") : "/dev/vxa2xxx";
    g_fd = open(node, O_RDWR | O_CLOEXEC);
    if (g_fd < 0) { printf("open errno=%d\n", errno); return 1; }

    struct req r;
    memset(&r, 0, sizeof r);
    static uint8_t resp[1 << 21], reqb[1 << 21];
    r.respbuf = resp;
    r.reqbuf = reqb;

    if (strcmp(cmd, "count") == 0) {
        r.cmd = 0xFF;
        issue(&r);
        print_outcome(&r);
        printf(" count=%u\n", r.inst_out);
    } else if (strcmp(cmd, "bind") == 0 && argc > 1) {
        r.cmd = 0xFE;
        r.inst = (uint16_t)num(argv[1]);
        issue(&r);
        print_outcome(&r);
        printf("\n");
    } else if (strcmp(cmd, "query") == 0 && argc > 2) {
        /* query HBA SUB [INSTANCE] */
        r.cmd = 0x00;
        r.hba = (uint16_t)num(argv[1]);
        r.sub = (uint16_t)num(argv[2]);
        r.inst = argc > 3 ? (uint16_t)num(argv[3]) : 0;
        static const uint32_t sizes[] = {0, 696, 56, 60, 60, 0, 0, 0, 84, 128, 240};
        r.resplen = r.sub < 11 ? sizes[r.sub] : 64;
        if (getenv("VXPROBE_RESPLEN")) r.resplen = (uint32_t)num(getenv("VXPROBE_RESPLEN"));
        issue(&r);
        print_outcome(&r);
        if (r.rc == 0 && r.status == 0) {
            if (r.sub == 1) {
                hex("wwnn", resp, 8);
                printf(" manufacturer=\"%.64s\" model=\"%.32s\" serial=\"%.32s\" driver=\"%.32s\" fw=\"%.32s\" optrom=\"%.32s\" ports=%u bivalid=%u",
                       (char *)resp + 8, (char *)resp + 72, (char *)resp + 104, (char *)resp + 136, (char *)resp + 168,
                       (char *)resp + 200, get16(resp, 232), get32(resp, 244));
                printf(" fwver=%u.%u.%u efiver=%u.%u fcodever=%u.%u", resp[248], resp[249], resp[250], resp[252], resp[253],
                       resp[256], resp[257]);
            } else if (r.sub == 2) {
                hex("wwpn", resp, 8);
                hex("id", resp + 8, 4);
                printf(" type=%u state=%u mode=%u targets=%u speed=%u", get16(resp, 12), get16(resp, 14), get16(resp, 16),
                       get16(resp, 22), get32(resp, 32));
            } else if (r.sub == 3 || r.sub == 4) {
                hex("wwpn", resp + 8, 8);
                printf(" target=%u", get16(resp, 26));
            } else if (r.sub == 8) {
                printf(" vendor=%04x device=%04x ssvid=%04x ssdid=%04x bus=%u devfn=%u sector=%u", get16(resp, 0),
                       get16(resp, 2), get16(resp, 4), get16(resp, 6), get16(resp, 8), get16(resp, 48), get32(resp, 60));
            }
        }
        printf("\n");
    } else if (strcmp(cmd, "req") == 0 && argc > 5) {
        /* req HBA CMD SUB REQLEN RESPLEN [FIRST_U16_OF_REQUEST]: generic request, zero buffers */
        r.hba = (uint16_t)num(argv[1]);
        r.cmd = (uint8_t)num(argv[2]);
        r.sub = (uint16_t)num(argv[3]);
        r.reqlen = (uint32_t)num(argv[4]);
        r.resplen = (uint32_t)num(argv[5]);
        if (argc > 6) put16(reqb, 0, (uint16_t)num(argv[6]));
        issue(&r);
        print_outcome(&r);
        hex("head", resp, r.resplen < 16 ? r.resplen : 16);
        printf("\n");
    } else if (strcmp(cmd, "readflash") == 0 && argc > 5) {
        /* readflash HBA REGION OFFSET LEN FILE */
        r.cmd = 0x0F;
        r.hba = (uint16_t)num(argv[1]);
        r.sub = (uint16_t)num(argv[2]);
        r.reserved1 = (uint32_t)num(argv[3]);
        r.reqlen = r.resplen = (uint32_t)num(argv[4]);
        if (r.resplen > sizeof resp) return usage();
        issue(&r);
        print_outcome(&r);
        printf("\n");
        if (r.rc == 0 && r.status == 0 && write_file(argv[5], resp, r.resplen) != 0) return 1;
    } else if (strcmp(cmd, "writeflash") == 0 && argc > 4) {
        /* writeflash HBA REGION OFFSET FILE */
        size_t n = 0;
        uint8_t *data = read_file(argv[4], &n);
        if (data == NULL) return 1;
        r.cmd = 0x0A;
        r.hba = (uint16_t)num(argv[1]);
        r.sub = (uint16_t)num(argv[2]);
        r.reserved1 = (uint32_t)num(argv[3]);
        r.reqlen = (uint32_t)n;
        r.reqbuf = data;
        issue(&r);
        print_outcome(&r);
        printf("\n");
        free(data);
    } else if ((strcmp(cmd, "nvram-get") == 0 || strcmp(cmd, "vpd-get") == 0) && argc > 3) {
        /* nvram-get HBA LEN FILE */
        r.cmd = cmd[0] == 'n' ? 0x0C : 0x11;
        r.hba = (uint16_t)num(argv[1]);
        r.resplen = (uint32_t)num(argv[2]);
        issue(&r);
        print_outcome(&r);
        printf("\n");
        if (r.rc == 0 && r.status == 0 && write_file(argv[3], resp, r.resplen_out) != 0) return 1;
    } else if ((strcmp(cmd, "nvram-set") == 0 || strcmp(cmd, "vpd-set") == 0) && argc > 2) {
        size_t n = 0;
        uint8_t *data = read_file(argv[2], &n);
        if (data == NULL) return 1;
        r.cmd = cmd[0] == 'n' ? 0x0D : 0x12;
        r.hba = (uint16_t)num(argv[1]);
        r.reqlen = (uint32_t)n;
        r.reqbuf = data;
        issue(&r);
        print_outcome(&r);
        printf("\n");
        free(data);
    } else if (strcmp(cmd, "layout") == 0 && argc > 1) {
        r.cmd = 0x10;
        r.hba = (uint16_t)num(argv[1]);
        r.resplen = 4088;
        issue(&r);
        print_outcome(&r);
        if (r.rc == 0 && r.status == 0) {
            printf(" size=%x regions=%u", get32(resp, 0), get32(resp, 4));
            for (uint32_t i = 0; i < get32(resp, 4) && i < 255; ++i)
                printf(" %x:%x@%x", get32(resp, 8 + 16 * i), get32(resp, 12 + 16 * i), get32(resp, 16 + 16 * i));
        }
        printf("\n");
    } else if (strcmp(cmd, "scsi") == 0 && argc > 4) {
        /* scsi HBA TARGET LUN OPCODE */
        r.cmd = 0x05;
        r.hba = (uint16_t)num(argv[1]);
        memset(reqb, 0, 352);
        put16(reqb, 2, (uint16_t)num(argv[2]));
        put16(reqb, 4, (uint16_t)num(argv[3]));
        /* a read of up to 256 bytes, the allocation length in the command */
        reqb[16] = 1;
        reqb[18] = (uint8_t)num(argv[4]);
        reqb[17] = reqb[18] == 0xa0 ? 12 : reqb[18] == 0x25 ? 10 : 6;
        if (reqb[18] == 0x12) reqb[18 + 4] = 255;
        if (reqb[18] == 0xa0) reqb[18 + 8] = 1;
        put16(reqb, 94, 32); /* sense bytes wanted */
        r.reqlen = 352;
        r.resplen = 256;
        issue(&r);
        print_outcome(&r);
        printf(" sensekey=%u", reqb[96 + 2] & 0xF);
        if (r.rc == 0 && r.status == 0 && reqb[18] == 0x12) printf(" vendor=\"%.8s\"", (char *)resp + 8);
        printf("\n");
    } else if (strcmp(cmd, "bad") == 0 && argc > 2) {
        /* bad KIND HBA: a malformed request of the given kind */
        const char *kind = argv[1];
        r.hba = (uint16_t)num(argv[2]);
        r.cmd = 0x00;
        r.sub = 1;
        r.resplen = 696;
        build(&r);
        unsigned long nr = number(r.cmd);
        if (strcmp(kind, "signature") == 0) memcpy(g_hdr, "VARNIY", 6);
        else if (strcmp(kind, "version") == 0) put16(g_hdr, 10, 6);
        else if (strcmp(kind, "addrmode") == 0) put16(g_hdr, 8, 1);
        else if (strcmp(kind, "command") == 0) nr = number(0x77);
        else if (strcmp(kind, "subcode") == 0) put16(g_hdr, 12, 77);
        else if (strcmp(kind, "short") == 0) put32(g_hdr, 32, 100);
        else if (strcmp(kind, "pointer") == 0) {
            build(&r);
            r.cmd = 0x0D;
            r.reqlen = 256;
            r.reqbuf = (void *)(uintptr_t)0x10;
            build(&r);
            nr = number(0x0D);
        } else if (strcmp(kind, "number") == 0) nr = 0xC0107900UL;
        else return usage();
        send_hdr(&r, nr);
        print_outcome(&r);
        printf("\n");
    } else {
        return usage();
    }
    close(g_fd);
    return 0;
}

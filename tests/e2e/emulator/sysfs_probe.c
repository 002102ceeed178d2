/* SPDX-License-Identifier: MIT */
/* Walks the emulated /sys the way the library does, through libsysfs, and
 * prints what it finds as "key=value" lines for the test scripts. */
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sysfs/libsysfs.h>

static void chomp(char *s) {
    size_t n = strlen(s);
    if (n > 0 && s[n - 1] == '\n') s[n - 1] = '\0';
}

int main(void) {
    char mnt[SYSFS_PATH_MAX];
    if (sysfs_get_mnt_path(mnt, sizeof mnt) != 0) {
        printf("mnt errno=%d\n", errno);
        return 1;
    }
    printf("mnt=%s\n", mnt);
    struct sysfs_bus *bus = sysfs_open_bus("pci");
    if (bus == NULL) {
        printf("bus errno=%d\n", errno);
        return 1;
    }
    struct sysfs_driver *drv = sysfs_get_bus_driver(bus, "vxa2xxx");
    struct dlist *devs = drv != NULL ? sysfs_get_driver_devices(drv) : NULL;
    struct sysfs_device *dev = NULL;
    char first[SYSFS_PATH_MAX] = "";
    if (devs != NULL) {
        dlist_for_each_data(devs, dev, struct sysfs_device) {
            struct sysfs_attribute *v = sysfs_get_device_attr(dev, "vendor");
            char vendor[32] = "";
            if (v != NULL && v->value != NULL) snprintf(vendor, sizeof vendor, "%s", v->value);
            chomp(vendor);
            printf("device=%s driver=%s bus=%s vendor=%s\n", dev->bus_id, dev->driver_name, dev->bus, vendor);
            if (first[0] == '\0') snprintf(first, sizeof first, "%s", dev->path);
        }
    }
    struct sysfs_class_device *cd = sysfs_open_class_device("vxa2xxx", "vxa2xxx");
    struct sysfs_attribute *devattr = cd != NULL ? sysfs_get_classdev_attr(cd, "dev") : NULL;
    if (devattr != NULL && devattr->value != NULL) {
        chomp(devattr->value);
        printf("node=%s\n", devattr->value);
    }
    if (cd != NULL) sysfs_close_class_device(cd);
    struct sysfs_class_device *fc = sysfs_open_class_device("fc_host", "host5");
    struct sysfs_attribute *pn = fc != NULL ? sysfs_get_classdev_attr(fc, "port_name") : NULL;
    struct sysfs_device *fcdev = fc != NULL ? sysfs_get_classdev_device(fc) : NULL;
    if (pn != NULL && pn->value != NULL) {
        chomp(pn->value);
        printf("port_name=%s device=%s\n", pn->value, fcdev != NULL ? fcdev->name : "?");
    }
    if (fc != NULL) sysfs_close_class_device(fc);

    if (first[0] != '\0') {
        char path[SYSFS_PATH_MAX + 32];
        snprintf(path, sizeof path, "%s/host5/optrom_ctl", first);
        struct sysfs_attribute *ctl = sysfs_open_attribute(path);
        if (ctl != NULL) {
            int rc = sysfs_write_attribute(ctl, "4", 2);
            printf("ctl method=%d probe4 rc=%d errno=%d\n", (int)ctl->method, rc, rc != 0 ? errno : 0);
            rc = sysfs_write_attribute(ctl, "1:80000:1000", 13);
            snprintf(path, sizeof path, "%s/host5/optrom", first);
            struct sysfs_attribute *rom = sysfs_open_attribute(path);
            if (rc == 0 && rom != NULL && sysfs_read_attribute(rom) == 0) printf("window len=%u\n", rom->len);
            if (rom != NULL) sysfs_close_attribute(rom);
            sysfs_write_attribute(ctl, "0", 2);
            sysfs_close_attribute(ctl);
        }
        snprintf(path, sizeof path, "%s/host5/nvram", first);
        struct sysfs_attribute *nv = sysfs_open_attribute(path);
        if (nv != NULL && sysfs_read_attribute(nv) == 0) printf("nvram len=%u method=%d\n", nv->len, (int)nv->method);
        if (nv != NULL) sysfs_close_attribute(nv);
    }
    sysfs_close_bus(bus);
    return 0;
}

#include "QuotaDisk.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/btrfs.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>

QuotaDisk::QuotaDisk(const std::string& directory, const std::string& mountPoint,
                     std::uint64_t bytes)
    : point(mountPoint) {
    make(directory + "/quota.image", bytes);
}

QuotaDisk::~QuotaDisk() {
    if (mounted) {
        ::umount2(point.c_str(), MNT_DETACH);
    }
}

void QuotaDisk::lacks(const std::string& what) {
    lack = what + ": " + std::strerror(errno);
}

void QuotaDisk::make(const std::string& image, std::uint64_t bytes) {
    std::ofstream(image).flush();
    std::filesystem::resize_file(image, kDiskBytes);
    if (std::system(
            ("PATH=$PATH:/sbin:/usr/sbin mkfs.btrfs -q " + image + " >/dev/null 2>&1").c_str()) !=
        0) {
        lack = "mkfs.btrfs does not work here";
        return;
    }
    const UniqueFd device = attach(image);
    if (!device) {
        return;
    }
    if (::mount(deviceName.c_str(), point.c_str(), "btrfs", 0, nullptr) != 0) {
        lacks("can not mount a btrfs");
        return;
    }
    mounted = true;
    limit(bytes);
}

UniqueFd QuotaDisk::attach(const std::string& image) {
    const UniqueFd control(::open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    const UniqueFd file(::open(image.c_str(), O_RDWR | O_CLOEXEC));
    for (int attempt = 0; control && file && attempt < 16; ++attempt) {
        const int number = ::ioctl(control.get(), LOOP_CTL_GET_FREE);
        deviceName = "/dev/loop" + std::to_string(number);
        UniqueFd device(number < 0 ? -1 : ::open(deviceName.c_str(), O_RDWR | O_CLOEXEC));
        loop_config config{};
        config.fd = static_cast<__u32>(file.get());
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        if (device && ::ioctl(device.get(), LOOP_CONFIGURE, &config) == 0) {
            return device;
        }
        if (errno != EBUSY) {
            break;
        }
    }
    lacks("no loop device is to be had");
    return UniqueFd();
}

void QuotaDisk::limit(std::uint64_t bytes) {
    const UniqueFd top(::open(point.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    btrfs_ioctl_quota_ctl_args enable{};
    enable.cmd = BTRFS_QUOTA_CTL_ENABLE;
    btrfs_ioctl_qgroup_limit_args most{};
    most.qgroupid = kTopLevelGroup;
    most.lim.flags = BTRFS_QGROUP_LIMIT_MAX_RFER;
    most.lim.max_rfer = bytes;
    if (::ioctl(top.get(), BTRFS_IOC_QUOTA_CTL, &enable) != 0 ||
        ::ioctl(top.get(), BTRFS_IOC_QUOTA_RESCAN_WAIT) != 0 ||
        ::ioctl(top.get(), BTRFS_IOC_QGROUP_LIMIT, &most) != 0) {
        lacks("can not set a quota");
    }
}

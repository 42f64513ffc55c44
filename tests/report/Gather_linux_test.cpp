// The Linux gathering's two steps apart: what is read of a captured machine, and the
// report built from what was read, disk classification included.
#ifdef __linux__ // the gathering of the other systems is their own
#include "common/report/Gather_linux.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

const std::string kVm = std::string(INVSCAN_TEST_DATA) + "/linux/vm-firecracker-debian12";

std::string valueOf(const report::Node* n, const char* name) {
    const report::Value* v = n ? n->value(name) : nullptr;
    return v ? v->s : std::string("<none>");
}

} // namespace

TEST(LinuxGathering, ReportOfACapturedMachine) {
    const report::LinuxMachine m = report::readLinuxMachine(kVm, "sysprof");
    ASSERT_EQ(m.disks.size(), 3u); // loop0, vda, zram0, by name
    const linuxfacts::BlockDevice& vda = m.disks[1];
    EXPECT_EQ(vda.path, "/sys/devices/pci0000:00/0000:00:02.0/virtio1/block/vda");
    EXPECT_EQ(vda.sectors, 536870912u);
    EXPECT_EQ(vda.serial, "overlayblk");
    EXPECT_EQ(vda.pciDriver, "virtio-pci");
    EXPECT_FALSE(vda.solidState || vda.removable);
    EXPECT_EQ(m.memoryBytes, 24683656ull * 1024); // meminfo, as no sysinfo is taken
    EXPECT_FALSE(m.dhcp.at("eth0"));

    report::Node root;
    report::buildSystemProfiler(m, &root);
    const report::Node* sp = root.child("SystemProfiler");
    ASSERT_TRUE(sp);
    const report::Node* hw = sp->child("SPHardwareDataType")->child("hardware_overview");
    EXPECT_EQ(valueOf(hw, "cpu_type"), "Intel(R) Xeon(R) Processor");
    EXPECT_EQ(valueOf(hw, "l2_cache_core"), "2 MB");
    EXPECT_EQ(valueOf(hw, "physical_memory"), "24 GB");
    EXPECT_EQ(valueOf(sp->child("SPSoftwareDataType")->child("os_overview"), "os_version"),
              "Debian GNU/Linux 12 (bookworm)");
    // The loop and zram devices are no disks.
    const report::Node* sata = sp->child("SPSerialATADataType");
    ASSERT_TRUE(sata);
    ASSERT_EQ(sata->children.size(), 1u);
    const report::Node* disk =
        sata->child("VirtIO Block Controller 0000:00:02.0")->child("VirtIO Block Device");
    EXPECT_EQ(valueOf(disk, "size_in_bytes"), "274877906944");
    EXPECT_EQ(valueOf(disk, "bsd_name"), "disk0");
    EXPECT_EQ(valueOf(disk, "spsata_medium_type"), "Rotational");
    // Every interface but lo: ifb0 and ifb1 are down and unaddressed, and virtual.
    const report::Node* net = sp->child("SPNetworkDataType");
    ASSERT_TRUE(net);
    ASSERT_EQ(net->children.size(), 3u);
    EXPECT_EQ(valueOf(net->child("eth0")->child("Ethernet"), "MAC Address"), "02:fc:00:00:00:01");
    EXPECT_EQ(valueOf(net->child("eth0"), "physical"), "yes");
    EXPECT_EQ(valueOf(net->child("ifb0"), "physical"), "no");
    EXPECT_EQ(valueOf(net->child("ifb1"), "operstate"), "down");
    EXPECT_FALSE(net->child("ifb1")->child("IPv4"));
}

// The memory section on machines with and without an SMBIOS table, and a table too
// large for the registry's data value, which is left out with a word.
TEST(LinuxGathering, SmbiosTableOrWhyNone) {
    const std::string lenovo = linuxfacts::readFile(std::string(INVSCAN_TEST_DATA) + "/linux/",
                                                    "lenovo-thinkpad-t480s.bin");
    char dir[] = "/tmp/invscan-gather-smbios-XXXXXX";
    ASSERT_TRUE(mkdtemp(dir));
    const std::string root = dir, tables = root + "/sys/firmware/dmi/tables";
    ASSERT_EQ(std::system(("mkdir -p " + tables).c_str()), 0);
    const struct {
        const char* what;
        std::string table; // empty: no file at all
        const char* reason;
        std::size_t slots;
        bool inRegistry;
    } cases[] = {
        {"no DMI in sysfs, as on this VM", "", "no SMBIOS table", 0, false},
        {"a laptop's table", lenovo, "<none>", 2, true},
        {"past what a report value holds", lenovo + std::string(60000, '\0'), "<none>", 2, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::remove((tables + "/DMI").c_str());
        if (!c.table.empty()) {
            std::FILE* f = std::fopen((tables + "/DMI").c_str(), "wb");
            ASSERT_TRUE(f);
            std::fwrite(c.table.data(), 1, c.table.size(), f);
            std::fclose(f);
        }
        report::Node sp;
        report::buildSystemProfiler(report::readLinuxMachine(root, "sysprof"), &sp);
        const report::Node* mem = sp.child("SystemProfiler")->child("SPMemoryDataType");
        ASSERT_TRUE(mem);
        EXPECT_EQ(valueOf(mem, "smbios_table"), c.reason);
        const report::Node* slots = mem->child("SPMemoryDataType");
        EXPECT_EQ(slots ? slots->children.size() : 0u, c.slots);

        report::Node io;
        report::buildRegistry(report::readLinuxMachine(root, "iokit"), &io);
        const report::Node* pe = io.child("IOKit")->child("Root")->child("Linux");
        ASSERT_TRUE(pe);
        EXPECT_EQ(pe->child("AppleACPIPlatformExpert") != nullptr, c.inRegistry);
        EXPECT_EQ(pe->value("SMBIOS-omitted") != nullptr, !c.table.empty() && !c.inRegistry);
    }
    ASSERT_EQ(std::system(("rm -rf " + root).c_str()), 0);
}

TEST(LinuxGathering, DisksByBus) {
    const std::string pci = "/sys/devices/pci0000:00/0000:00:";
    const struct {
        const char *name, *path, *driver, *vendor, *model;
        const char *section, *controller, *disk;
    } cases[] = {
        {"sda", "1f.2/ata1/host0/target0:0:0/0:0:0:0/block/sda", "ahci", "ATA", "Samsung SSD",
         "SPSerialATADataType", "ahci host0", "Samsung SSD"},
        {"sdb", "1f.1/ata2/host1/target1:0:0/1:0:0:0/block/sdb", "pata_amd", "ATA", "ST3200",
         "SPParallelATADataType", "pata_amd host1", "ST3200"},
        {"sdc", "10.0/host2/target2:0:0/2:0:0:0/block/sdc", "", "HP", "LOGICAL VOLUME",
         "SPSerialATADataType", "SCSI host2", "HP LOGICAL VOLUME"},
        {"nvme0n1", "1d.0/0000:3d:00.0/nvme/nvme0/nvme0n1", "nvme", "", "PM981", "SPNVMeDataType",
         "NVMe Controller 0000:3d:00.0", "PM981"},
        {"sdd", "14.0/usb2/2-1/2-1:1.0/host6/target6:0:0/6:0:0:0/block/sdd", "xhci_hcd", "Kingston",
         "DataTraveler", "SPUSBDataType", "xHCI Host Controller", "DataTraveler"},
        {"sr0", "1f.2/ata3/host2/target2:0:0/2:0:0:0/block/sr0", "ahci", "HL-DT-ST", "DVDRAM",
         "SPSerialATADataType", "ahci host2", "HL-DT-ST DVDRAM"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        report::LinuxMachine m;
        linuxfacts::BlockDevice d;
        d.name = c.name;
        d.path = pci + c.path;
        d.pciDriver = c.driver;
        d.vendor = c.vendor;
        d.model = c.model;
        d.sectors = 2048;
        if (d.path.find("/usb2/") != std::string::npos) {
            d.usbBus = pci + "14.0/usb2";
            d.usbBusProduct = "xHCI Host Controller";
        }
        m.disks.push_back(d);
        report::Node root;
        report::buildSystemProfiler(m, &root);
        const report::Node* sec = root.child("SystemProfiler")->child(c.section);
        ASSERT_TRUE(sec);
        const report::Node* ctl = sec->child(c.controller);
        ASSERT_TRUE(ctl) << sec->children[0].name;
        const report::Node* disk = ctl->child(c.disk);
        ASSERT_TRUE(disk) << ctl->children[0].name;
        EXPECT_EQ(valueOf(disk, "detachable_drive"), c.section[2] == 'U' ? "yes" : "no");
        // An optical drive has no medium type.
        EXPECT_EQ(disk->value("spsata_medium_type") == nullptr,
                  std::string(c.name) == "sr0" || c.section[2] == 'U');
    }
}

#endif

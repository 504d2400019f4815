"""The machines that qemu emulates, and what the board's kernel needs on each of them."""

from dataclasses import dataclass

MEMORY_MIB = 512
MEMORY_FRAMEBUFFER = "boardfb xres=800 yres=480"
GRAPHICS = "drm_kms_helper drm_fbdev_overalloc=300"  # three pages of video memory


@dataclass(frozen=True)
class Machine:
    """`qemu` are the arguments without kernel, cards and network; "{card}" and "{empty}" are image files of SD cards, and
    the card becomes /dev/mmcblk1. `modules` are loaded in this order with what they depend on."""

    qemu: tuple
    console: str
    network: tuple
    modules: tuple
    device_tree: str = ""  # a file of the kernel's package
    changes: tuple = ()  # options and words of "fdtput OPTIONS FILE WORDS", each a string, that change it
    stores_register: bool = False  # whether the register of the hardware information keeps what is written


SDHCI = ("-device", "sdhci-pci", "-drive", "if=none,id=first,format=raw,cache=unsafe,file={empty}",
         "-device", "sd-card,drive=first,bus=sd-bus", "-device", "sdhci-pci,id=second",
         "-drive", "if=none,id=card,format=raw,cache=unsafe,file={card}", "-device", "sd-card,drive=card")

MACHINES = {
    # A real DRM driver with its framebuffer emulation.
    "virt": Machine(
        qemu=("-machine", "virt,highmem=off", "-cpu", "cortex-a15", "-smp", "1", "-m", f"{MEMORY_MIB}",
              "-device", "virtio-gpu-pci,xres=1280,yres=800", *SDHCI),
        console="ttyAMA0", network=("-device", "virtio-net-pci,netdev=net,romfile="),
        modules=("sdhci-pci", "virtio_pci", "virtio_net", GRAPHICS, "virtio-gpu")),
    # The nearest relative: its processor has the register, which the emulator does not store. Only the second network
    # interface finds its transceiver in this emulator, and its supply depends on a chip that Debian has no driver for.
    "imx": Machine(
        qemu=("-machine", "mcimx6ul-evk", "-m", f"{MEMORY_MIB}",
              "-drive", "if=sd,index=0,format=raw,cache=unsafe,file={empty}",
              "-drive", "if=sd,index=1,format=raw,cache=unsafe,file={card}"),
        console="ttymxc0",
        network=("-netdev", "user,id=unused,restrict=on", "-net", "nic,netdev=unused", "-net", "nic,netdev=net"),
        modules=("sdhci-esdhc-imx", "micrel", "fec", MEMORY_FRAMEBUFFER), device_tree="imx6ul-14x14-evk.dtb",
        changes=(("-d", "/soc/bus@2000000/ethernet@20b4000 phy-supply"),
                 ("-t s", "/soc/bus@2100000/ethernet@2188000 status disabled"))),
    # A register that stores: the memory at its address, which the kernel leaves alone. Linux calls a USB interface "eth0"
    # only if its address is a global one.
    "raspi": Machine(
        qemu=("-machine", "raspi2b", "-drive", "if=sd,format=raw,cache=unsafe,file={card}"),
        console="ttyAMA0", network=("-device", "usb-net,netdev=net,mac=50:54:00:12:34:56"),
        modules=("bcm2835", "bcm2835_wdt", "phy-generic", "dwc2", "cdc_ether", "rndis_host", MEMORY_FRAMEBUFFER),
        device_tree="bcm2836-rpi-2-b.dtb",
        changes=(("-t s", "/aliases mmc1 /soc/mmc@7e202000"),
                 ("-c", "/reserved-memory/register@20cc000"),
                 ("-t x", "/reserved-memory/register@20cc000 reg 20cc000 1000"),
                 ("-t x", "/reserved-memory/register@20cc000 no-map")),
        stores_register=True),
}
COMMON_MODULES = ("ext4", "crc32c_generic")

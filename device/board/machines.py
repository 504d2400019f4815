"""A machine that qemu emulates, and what the board's kernel needs on it."""

from dataclasses import dataclass

MEMORY_MIB = 512
GRAPHICS = "drm_kms_helper drm_fbdev_overalloc=300"  # three pages of video memory


@dataclass(frozen=True)
class Machine:
    """`qemu` are the arguments without kernel, cards and network; "{card}" and "{empty}" are image files of SD cards, and
    the card becomes /dev/mmcblk1. `modules` are loaded in this order with what they depend on."""

    qemu: tuple
    console: str
    network: tuple
    modules: tuple


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
}
COMMON_MODULES = ("ext4", "crc32c_generic")

// A framebuffer in memory for emulated machines without a display that Debian's kernel knows: /dev/fb0 with
// 32 bits per pixel, three pages and panning, as the controller's. Module parameters: xres, yres.

#include <linux/delay.h>
#include <linux/fb.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/vmalloc.h>

#define PAGES 3
#define BYTES_PER_PIXEL 4
#define FRAME_US 16667

static unsigned int xres = 800;
static unsigned int yres = 480;
module_param(xres, uint, 0444);
module_param(yres, uint, 0444);

static struct platform_device* device;
static struct fb_info* info;
static u32 palette[16];

static int pan_display(struct fb_var_screeninfo* var, struct fb_info* fb) {
    return var->xoffset != 0 || var->yoffset + fb->var.yres > fb->var.yres_virtual ? -EINVAL : 0;
}

static int io_control(struct fb_info* fb, unsigned int command, unsigned long argument) {
    if (command != FBIO_WAITFORVSYNC)
        return -ENOTTY;
    usleep_range(FRAME_US - 500, FRAME_US);
    return 0;
}

static int map_memory(struct fb_info* fb, struct vm_area_struct* area) {
    return remap_vmalloc_range(area, (void*)fb->screen_base, area->vm_pgoff);
}

static struct fb_ops operations = {
    .owner = THIS_MODULE,
    .fb_read = fb_sys_read,
    .fb_write = fb_sys_write,
    .fb_pan_display = pan_display,
    .fb_ioctl = io_control,
    .fb_mmap = map_memory,
    .fb_fillrect = sys_fillrect,
    .fb_copyarea = sys_copyarea,
    .fb_imageblit = sys_imageblit,
};

static void describe(struct fb_info* fb) {
    strscpy(fb->fix.id, "boardfb", sizeof fb->fix.id);
    fb->fix.type = FB_TYPE_PACKED_PIXELS;
    fb->fix.visual = FB_VISUAL_TRUECOLOR;
    fb->fix.ypanstep = 1;
    fb->fix.line_length = xres * BYTES_PER_PIXEL;
    fb->fix.smem_len = PAGE_ALIGN(fb->fix.line_length * yres * PAGES);
    fb->var.xres = fb->var.xres_virtual = xres;
    fb->var.yres = yres;
    fb->var.yres_virtual = yres * PAGES;
    fb->var.bits_per_pixel = BYTES_PER_PIXEL * 8;
    fb->var.red = (struct fb_bitfield){.offset = 16, .length = 8};
    fb->var.green = (struct fb_bitfield){.offset = 8, .length = 8};
    fb->var.blue = (struct fb_bitfield){.offset = 0, .length = 8};
    fb->fbops = &operations;
    fb->pseudo_palette = palette;
    fb->flags = FBINFO_VIRTFB;
}

static int __init start(void) {
    int result = -ENOMEM;
    device = platform_device_register_simple("boardfb", -1, NULL, 0);
    if (IS_ERR(device))
        return PTR_ERR(device);
    info = framebuffer_alloc(0, &device->dev);
    if (!info)
        goto no_info;
    describe(info);
    info->screen_size = info->fix.smem_len;
    info->screen_base = (char __iomem*)vmalloc_user(info->fix.smem_len);
    if (!info->screen_base)
        goto no_memory;
    result = register_framebuffer(info);
    if (result == 0)
        return 0;
    vfree((void*)info->screen_base);
no_memory:
    framebuffer_release(info);
no_info:
    platform_device_unregister(device);
    return result;
}

static void __exit stop(void) {
    unregister_framebuffer(info);
    vfree((void*)info->screen_base);
    framebuffer_release(info);
    platform_device_unregister(device);
}

module_init(start);
module_exit(stop);
MODULE_DESCRIPTION("Framebuffer in memory");
MODULE_LICENSE("GPL");

"""The files behind the card and the register of a virtual device, and the values that its factory writes to the card."""

CARD_SIZE = 0x200000
REGISTER_AT = 0x20CC068
WORD_SIZE = 4
FACTORY_VALUES = (
    "serial=K1-00042",
    "board=K1",
    "revision=C",
    "knob_position_min=112",
    "knob_position_max=3984",
    "slider_position_min=96",
    "slider_position_max=4002",
    "zoom_zero_pos_x=2047",
    "zoom_zero_pos_y=2053",
    "bemf_gain=2",
    "cal_comp=13",
    "cal_bemf=121",
)


def make_devices(folder):
    """Makes an empty card in `folder`, and a sparse memory file that reaches to the register."""
    for name, size in (("mmcblk1", CARD_SIZE), ("mem", REGISTER_AT + WORD_SIZE)):
        with open(folder / name, "wb") as file:
            file.truncate(size)

"""The hwinfo tool on a virtual device."""

CARD_AT = 0x100000
REGISTER_AT = 0x20CC068


def at(device, path, position, size):
    return device.path(path).read_bytes()[position:position + size]


def fill(device, path, position, data):
    with open(device.path(path), "r+b") as file:
        file.seek(position)
        file.write(data)


def run(device, *words):
    """Exit status, standard output and standard error of the tool."""
    return device.run("hwinfo", *words)


def card(device):
    return at(device, "/dev/mmcblk1", CARD_AT, 512)


def test_values_are_printed_and_set(device):
    assert run(device, "get", "serial") == (0, "K1-00042\n", "")
    assert run(device, "set", "serial=K1-00043", "boot_failed_counter=0x5") == (0, "", "")
    assert "serial=K1-00043\nboard=K1\n" in device.hwinfo("print")
    assert "       12.0    240  serial                        K1-00043\n" in device.hwinfo("print", "--all")
    assert at(device, "/dev/mem", REGISTER_AT, 4) == b"\x05\0\0\0"


def test_refused_command_changes_nothing(device):
    before = card(device)
    for words, status, error in (
        (["set", "k=7", "cal_comp=x"], 1, "cal_comp takes a number from 0 to 4294967295.\n"),
        (["set", "serial=" + 31 * "s"], 1, "serial takes at most 30 bytes.\n"),
        (["set", "serial"], 1, 'serial has no "=".\n'),
        (["create", "k=7"], 1, "The card holds valid hardware information. --force replaces it.\n"),
        (["print", "serial"], 2, "Unknown argument: serial.\nusage: hwinfo "),
        (["get"], 2, "get takes one name.\nusage: hwinfo "),
        (["get", "colour"], 1, "Unknown parameter: colour.\n"),
        (["set"], 2, "set takes at least one NAME=VALUE.\nusage: hwinfo "),
        (["wipe"], 2, "Unknown command: wipe.\nusage: hwinfo "),
        ([], 2, "The command is missing.\nusage: hwinfo "),
    ):
        code, output, errors = run(device, *words)
        assert (code, output, errors[:len(error) + 8]) == (status, "", f"hwinfo: {error}")
        assert card(device) == before


def test_damaged_block_is_kept_until_create(device):
    fill(device, "/dev/mmcblk1", CARD_AT, b"\xff" * 512)
    for words in (["print"], ["get", "serial"], ["set", "serial=x"]):
        assert run(device, *words) == (
            1, "", 'hwinfo: The card holds no valid hardware information. "hwinfo create" creates it.\n')
    assert card(device) == b"\xff" * 512
    assert run(device, "create", "board=B=1", "cal_bemf=0x10") == (0, "", "")
    assert {"board=B=1", "cal_bemf=16", "serial="} <= set(device.hwinfo("print").splitlines())
    assert run(device, "create", "--force", "board=K1") == (0, "", "")
    assert run(device, "get", "cal_bemf") == (0, "0\n", "")


def test_missing_card_is_named(device):
    device.path("/dev/mmcblk1").unlink()
    status, output, errors = run(device, "print")
    assert (status, output) == (1, "")
    assert errors.startswith("hwinfo: Cannot use /dev/mem and /dev/mmcblk1: ")
    assert run(device, "help")[:2] == (0, run(device)[2].split("\n", 1)[1])

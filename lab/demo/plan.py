"""What the demo measures: subscribers, read from the example files."""

import ipaddress
from dataclasses import dataclass, replace

DEFAULT_SECTION = "defaultqosipqueue"
DEFAULT_CLASS = 3
DIRECTIONS = ("download", "upload")
FAMILIES = ("IPv4", "IPv6")


# A host, in a network of a subscriber who has several.
_HOST, _NETWORK_BITS, _NETWORK = 0x10, 64, 0x42


def family(address):
    return "IPv6" if ":" in address else "IPv4"


def address_in(prefix):
    """An address of a prefix, in the form in which the kernel's tools print it."""
    network = ipaddress.IPv6Network(prefix)
    host_bits = network.max_prefixlen - network.prefixlen
    number = (_NETWORK << _NETWORK_BITS | _HOST) % (1 << host_bits)
    return str(network.network_address + number)


@dataclass(frozen=True)
class Subscriber:
    """Addresses of both families that share one class, and that class's ceilings in kbit/s."""

    name: str
    class_number: int
    addresses: tuple
    download: int
    upload: int
    queue: str

    def speed(self, direction):
        return getattr(self, direction)


def read_sections(path):
    """The sections of an INI file by name, each a list of (key, value). Examples
    have comments, the program's own files do not."""
    sections = {}
    with open(path, encoding="utf-8") as file:
        for line in map(str.strip, file):
            if line.startswith("["):
                current = sections.setdefault(line[1:line.index("]")].strip(), [])
            elif line and not line.startswith("#"):
                key, value = line.split("=", 1)
                current.append((key.strip().lower(), value.strip()))
    return sections


def _subscriber(name, keys):
    values = dict(keys)
    return Subscriber(
        name=name,
        class_number=int(values.get("id", 0)),
        addresses=(*(value.split("/")[0] for key, value in keys if key == "ip"),
                   *(address_in(value) for key, value in keys if key == "ip6")),
        download=int(values["download_speed"]),
        upload=int(values["upload_speed"]),
        queue=values.get("queuing_discipline", "none"),
    )


def read_tariffs(path):
    """The subscribers of a tariff file by name."""
    return {name: _subscriber(name, keys) for name, keys in read_sections(path).items()}


def class_numbers(path):
    """The class number of each tariff of a stored file by name."""
    return {name: tariff.class_number for name, tariff in read_tariffs(path).items()}


def default_subscriber(path, name, addresses):
    """A subscriber without a tariff, who shares the default tariff's class."""
    default = _subscriber(name, read_sections(path)[DEFAULT_SECTION])
    return replace(default, class_number=DEFAULT_CLASS, addresses=addresses, queue="fq_codel")


def groups(subscribers, direction, limit):
    """Splits subscribers into groups to be measured at once: no two of a group
    share a class, and their speeds stay within limit (kbit/s) together."""
    result = []
    for subscriber in subscribers:
        for group in result:
            if _fits(group, subscriber, direction, limit):
                group.append(subscriber)
                break
        else:
            result.append([subscriber])
    return result


def _fits(group, subscriber, direction, limit):
    total = sum(member.speed(direction) for member in group)
    shared = any(member.class_number == subscriber.class_number for member in group)
    return not shared and total + subscriber.speed(direction) <= limit

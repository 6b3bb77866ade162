"""The meaning of an address tree: which address reaches which class.

The filters are looked at as the kernel walks them: from the root table over a link that hashes the
third octet into a table of 16 buckets, and from there over one that hashes the last octet into a
table of 256. A filter in a bucket that its own address does not lead to is shown as lost.
"""

_DIRECTIONS = {12: "src", 16: "dst"}
_ROOT = 0x800


def _number(text):
    """Hexadecimal, nothing meaning 0."""
    return int(text or "0", 16)


class _Node:
    def __init__(self, options):
        table, bucket, _ = (options["fh"].split(":") + ["", ""])[:3]
        self.table = _number(table)
        self.bucket = _number(bucket)
        self.flowid = options.get("flowid")
        self.link = _number(options["link"].rstrip(":")) if "link" in options else None
        self.hash_mask = _number(options.get("hash_mask"))
        self.hash_offset = options.get("hash_off", 0)
        match = options.get("match", {})
        self.value = _number(match.get("value"))
        self.mask = _number(match.get("mask"))
        self.offset = match.get("off")


def _links(nodes, table, bucket, mask, offset):
    """Tables to which packets go on from a bucket, by the bits of the address that mask names."""
    return {node.link for node in nodes if (node.table, node.bucket) == (table, bucket)
            and node.link and (node.hash_mask, node.hash_offset) == (mask, offset)}


def _reached(nodes, node):
    """True when a packet with the node's address comes by the node."""
    third, last = node.value >> 8 & 0xFF, node.value & 0xFF
    return any(node.table in _links(nodes, base, third & 15, 0xFF, node.offset)
               for base in _links(nodes, _ROOT, 0, 0xFF00, node.offset)) and node.bucket == last


def _line(links, node):
    address = ".".join(str(node.value >> shift & 0xFF) for shift in (24, 16, 8, 0))
    length = "" if node.mask == 0xFFFFFFFF else f"/{node.mask:x}"
    lost = "" if _reached(links, node) else " lost"
    direction = _DIRECTIONS.get(node.offset, f"at {node.offset}")
    return f"{direction} {address}{length} class {node.flowid}{lost}"


def tree_lines(options):
    """Lines for the u32 filters of one priority, given as the "options" of tc -j."""
    nodes = [_Node(entry) for entry in options if "match" in entry]
    links = [node for node in nodes if node.link is not None]
    return sorted(_line(links, node) for node in nodes if node.link is None)

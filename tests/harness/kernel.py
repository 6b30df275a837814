"""What the kernel says, in the shape of the agent's answers."""

import ipaddress


def kernel_rows(namespace):
    """The rows that ipAddrTable must have: address -> (ifIndex, mask). For addresses on one interface each."""
    rows = {}
    for link in namespace.ip_json("-4", "addr"):
        for info in link.get("addr_info", []):
            if "local" not in info:
                continue
            mask = ipaddress.ip_network(f"0.0.0.0/{info['prefixlen']}", strict=False).netmask
            rows[info["local"]] = (link["ifindex"], str(mask))
    return rows

"""An agent that listens inside a VRF answers those who come through that VRF, and nobody else."""

from device_case import DeviceCase
from harness import eventually, main
from harness.snmp import Client

ADDRESS = "10.0.0.1"


class ListenTest(DeviceCase):
    communities = ("red", "blue", "manager-red", "manager-blue")

    def test_agent_listens_inside_a_vrf(self):
        """red and blue have the same address; each has a manager behind it, in a namespace of its own."""
        managers = {}
        for number, name in enumerate(("red", "blue")):
            self.add_device(name, 1001 + number)
            managers[name] = self.vrfs.add(f"manager-{name}", f"link add m-{name} type veth peer name m0",
                                           "link set m0 up", "addr add 10.0.0.9/24 dev m0")
            managers[name].ip("link", "set", f"m-{name}", "netns", self.namespace.name)
            self.namespace.ip_batch([f"link set m-{name} master {name} up", f"addr add {ADDRESS}/24 dev m-{name}"])
        self.mirror = self.start_mirror()
        self.agent = self.start_agent(listen=f"udp:{ADDRESS}@red:1161,udp:127.0.0.1:1161")
        self.wait_until_complete()
        clients = {name: Client(manager, f"udp:{ADDRESS}:1161", self.default.access)
                   for name, manager in managers.items()}
        eventually(clients["red"].answers, "red's manager gets no answer")
        self.assertFalse(clients["blue"].answers())
        self.expect_everything()


if __name__ == "__main__":
    main(1200)

"""Harness of the black-box tests: see tests/README.md."""

from harness.case import SystemCase, eventually, main
from harness.kernel import kernel_rows
from harness.namespace import Namespace
from harness.snmp import Client, SnmpError, VarBind

__all__ = ["Client", "Namespace", "SnmpError", "SystemCase", "VarBind", "eventually", "kernel_rows", "main"]

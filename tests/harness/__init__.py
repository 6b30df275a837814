"""Harness of the black-box tests: see tests/README.md."""

from harness.case import SystemCase, background, eventually, main
from harness.namespace import PATIENCE, Namespace
from harness.snmp import Client, SnmpError, VarBind
from harness.tables import kernel_rows

__all__ = ["PATIENCE", "Client", "Namespace", "SnmpError", "SystemCase", "VarBind", "background", "eventually", "kernel_rows",
           "main"]

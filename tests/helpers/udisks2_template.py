'''A python-dbusmock template of UDisks2 for the Storage card's Eject: one USB stick,
/dev/sdb1, whose file system unmounts and whose drive ejects; a second, /dev/sdc1, that a
program still holds.'''

import dbus

from dbusmock import mockobject

BUS_NAME = 'org.freedesktop.UDisks2'
MAIN_OBJ = '/org/freedesktop/UDisks2/Manager'
MAIN_IFACE = 'org.freedesktop.UDisks2.Manager'
SYSTEM_BUS = True

BLOCKS = '/org/freedesktop/UDisks2/block_devices/'
DRIVE = '/org/freedesktop/UDisks2/drives/USB_Stick'


def load(mock, parameters):
    mock.AddMethod(MAIN_IFACE, 'ResolveDevice', 'a{sv}a{sv}', 'ao',
                   'name = str(args[0].get("path", "")).rsplit("/", 1)[-1]\n'
                   f'ret = [dbus.ObjectPath("{BLOCKS}" + name)] if name in ("sdb1", "sdc1") else []')
    mock.AddObject(DRIVE, 'org.freedesktop.UDisks2.Drive', {'Ejectable': True}, [('Eject', 'a{sv}', '', '')])
    for name, busy in (('sdb1', False), ('sdc1', True)):
        path = BLOCKS + name
        mock.AddObject(path, 'org.freedesktop.UDisks2.Block', {'Drive': dbus.ObjectPath(DRIVE)}, [])
        code = ('raise dbus.exceptions.DBusException("Target is busy", name="org.freedesktop.UDisks2.Error.DeviceBusy")'
                if busy else '')
        mockobject.objects[path].AddMethod('org.freedesktop.UDisks2.Filesystem', 'Unmount', 'a{sv}', '', code)

'''A python-dbusmock template of the desktop portal's Settings, as apps read it: the colour
scheme (0 no preference, 1 dark, 2 light) from the "color-scheme" parameter. Read answers a
variant holding a variant, as the portal's first version did.'''

import dbus

BUS_NAME = 'org.freedesktop.portal.Desktop'
MAIN_OBJ = '/org/freedesktop/portal/desktop'
MAIN_IFACE = 'org.freedesktop.portal.Settings'
SYSTEM_BUS = False

NOT_FOUND = ('raise dbus.exceptions.DBusException("Requested setting not found", '
             'name="org.freedesktop.portal.Error.NotFound")')


def load(mock, parameters):
    mock.scheme = int(parameters.get('color-scheme', 0))
    known = 'if list(args) != ["org.freedesktop.appearance", "color-scheme"]: ' + NOT_FOUND + '\n'
    mock.AddMethod(MAIN_IFACE, 'Read', 'ss', 'v', known + 'ret = dbus.UInt32(self.scheme, variant_level=1)')
    mock.AddMethod(MAIN_IFACE, 'ReadOne', 'ss', 'v', known + 'ret = dbus.UInt32(self.scheme)')

// Serial lines: reserved, not served.
#ifndef QX_INTERFACESTTYS_H
#define QX_INTERFACESTTYS_H

int open_Ttys(int DeviceIndex);
int close_Ttys(int DeviceIndex);

#endif

// Serial lines: the place of a second family of interfaces, not served by the loader.
#ifndef QX_INTERFACESTTYS_H
#define QX_INTERFACESTTYS_H

// Does nothing. Returns 0.
int open_Ttys(int DeviceIndex);

// DeviceIndex must be TTYS_0. Prints two newlines. Returns 0.
int close_Ttys(int DeviceIndex);

#endif

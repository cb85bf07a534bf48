// A view of a umockdev testbed for a 32-bit ARM daemon run under qemu-arm.
//
// The testbed answers ioctls over one Unix socket per device, in messages of
// three unsigned longs (command, two arguments) and raw memory blocks: the
// width of the client's unsigned long. The target's preload sends 4-byte
// fields, this host's library reads 8-byte ones. The view is a directory
// that the daemon gets as its $UMOCKDEV_DIR: "dev", "sys" and the rest of
// the testbed are links into it, and "ioctl" holds sockets of its own whose
// connections are relayed to the testbed's, each message widened on the way
// in and narrowed on the way out. Handlers see the target's pointers and
// structure sizes unchanged (zero-extended addresses), so they serve either
// daemon alike as long as their records hold no pointers.
#pragma once

#include <string>

namespace emul {

// The view of the testbed whose root directory is testbed_dir, made on
// first use with a socket for every device already served; empty when it
// cannot be made.
std::string target_view(const std::string& testbed_dir);
// After umockdev_testbed_attach_ioctl(devnode): gives an existing view of
// testbed_dir its socket for devnode, before the node can be opened.
void bridge_ioctl(const std::string& testbed_dir, const std::string& devnode);
// The testbed goes away: its view's relays end and the view is removed.
void drop_target_view(const std::string& testbed_dir);

}  // namespace emul

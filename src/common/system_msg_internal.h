// Control-socket handlers, visible to their tests.
#pragma once

// Main-loop handler of the listening socket: accepts one connection and
// serves it. arg is the listening descriptor.
int handle_new_coming(void* arg);
// Main-loop handler of a connection: reads what has come of the next record
// without waiting; handles it once whole, drops the connection when the peer
// closed. arg is the connection's descriptor.
int handle_new_client_data(void* arg);
// The listening descriptor: 0 stopped, -1 when creation failed.
int system_service_fd();

// Main-loop housekeeping of the service, once per pass under the loop lock:
// drops connections whose record has been incomplete for too long and puts
// a listening socket that rested for want of descriptors back into the loop.
// Milliseconds until the next such decision, or -1 when none is pending.
int system_service_housekeeping();
// Ends the connection of a client that no longer reads (the send path's
// verdict): a control connection is closed with its screens released; the
// agent and INDP links are taken down through their own disconnect.
void drop_client_connection(int fd);

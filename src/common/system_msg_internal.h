// Control-socket handlers, visible to their tests.
#pragma once

// Main-loop handler of the listening socket: accepts one connection and
// serves it. arg is the listening descriptor.
int handle_new_coming(void* arg);
// Main-loop handler of a connection: reads and handles one whole record, or
// drops the connection. arg is the connection's descriptor.
int handle_new_client_data(void* arg);
// The listening descriptor: 0 stopped, -1 when creation failed.
int system_service_fd();

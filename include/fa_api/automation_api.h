/// @file
/// Client of the factory automation service.
///
/// Each function that talks to the service makes one blocking call over the system bus and returns
/// 0 for success and -1 for failure; the platform log (tag "FA_API") tells why. The first such call
/// connects. There is nothing to initialise, to close or to connect again: after a failure the next
/// call simply tries anew. A call blocks until the service answers, or for the bus's default
/// timeout (25 seconds).
///
/// Any thread may call any function; registering and unregistering one protocol is for one thread
/// at a time. Callbacks arrive on the thread that iterates the main context which was the
/// thread-default one of the thread whose call connected (the global default context where that
/// thread had none of its own): an application that registers a callback iterates that context, for
/// example with g_main_loop_run().
///
/// The connection is the process's one to the system bus, as g_bus_get() gives it, and the library
/// switches off that its loss ends the process.
///
/// Byte pointers are only read during the call. This header is C as well as C++.
#ifndef FA_API_AUTOMATION_API_H
#define FA_API_AUTOMATION_API_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/// @name Control calls
/// Success means that the service answered with a non-zero result.
/// @{

/// Copies the set's logs to USB storage.
int automation_copy_log_to_usb(void);

/// Changes the packet length of the serial source, in bytes. Any value is passed on.
int automation_change_packet_length_serial_source(unsigned int uiLen);

/// Changes the baud rate of the external UART: 9600 or 115200 bits per second. Any other value is
/// refused with -1, and nothing is sent.
int automation_change_baud_rate_ex_uart(unsigned int uibdRate);

/// Closes the external UART.
int automation_close_ex_uart(void);

/// @}

/// @name Commands
/// @{

/// Executes a numbered factory command. `data0` must not be 0; `data1` may be. Success means that
/// the service answered, whatever its result.
int automation_execute_command(int data0, int data1);

/// The same with a byte string of 1 to 255 bytes. `data` must point to `length` readable bytes;
/// null is refused with -1.
int automation_execute_command_with_data(int data0, int data1, const unsigned char* data,
                                         unsigned char length);

/// Switches the set's local set. `command` must be 806 and `option` the number of a local set (0 to
/// 96, not every number is one); the set must have fast boot. Returns 0 as soon as the platform
/// reports the new local set and -1 when it has not after five readings, which take a second.
int automation_execute_command_with_projector(int command, unsigned int option);

/// @}

/// @name Packets
/// `pData` points to `ulLength` bytes, at most 8,000,000, which is what the system bus carries. A
/// packet that is null, empty, longer, or that begins with a zero byte is refused with -1. Success
/// means that the service answered with a non-zero result.
/// @{

/// Sends a packet over the external UART.
int automation_send_message_by_ex_uart(const unsigned char* pData, unsigned int ulLength);

/// Sends a packet as RJP protocol data.
int automation_send_rjp_data(const unsigned char* pData, unsigned int ulLength);

/// Sends an RS-232 acknowledgement. `eProtocolType` is at most 4; negative values are passed on.
int automation_send_rs232_ack(int eProtocolType, unsigned int ulLength, const unsigned char* pData);

/// @}

/// @name Protocol events
/// @{

/// Data that has arrived on a serial protocol. It belongs to the library: it stays readable for
/// good, but the next data of the same protocol overwrites it, so copy what is needed later.
typedef struct ProtocolData_s {
    int iSize;                  ///< the size as the service reports it, not checked against p_data
    unsigned char p_data[256];  ///< the bytes; those behind the last one are of earlier data
} ProtocolData_s;

/// Receives the data. It may call any function of the library, unregistration included.
typedef void (*ProtocolCallback_fp)(ProtocolData_s*);

/// Registers the one callback of the serial source (SS). Returns 0 when the callback is registered
/// and the service's signal is connected; -1 otherwise, also for null, which leaves an earlier
/// callback in place. Register once: registering again replaces the callback and connects to the
/// signal once more, and unregistering takes back only the latest connection.
int automation_register_callback_serial_source(ProtocolCallback_fp callback_fp_ss);

/// The same for RJP.
int automation_register_callback_rjp_protocol(ProtocolCallback_fp callback_fp_rjp);

/// The same for EP.
int automation_register_callback_ep_protocol(ProtocolCallback_fp callback_fp_ep);

/// Clears the callback and disconnects from the signal. Always returns 0. Unregistering twice makes
/// GLib warn about the connection that is gone.
int automation_unregister_callback_serial_source(void);

/// The same for RJP.
int automation_unregister_callback_rjp_protocol(void);

/// The same for EP.
int automation_unregister_callback_ep_protocol(void);

/// Fetches the pending SS data and hands it to the callback. Registration connects it to the
/// service's signal; an application rarely calls it itself.
void _autoamtion_signal_handler_ss(void);

/// The same for RJP.
void _autoamtion_signal_handler_rjp(void);

/// The same for EP.
void _autoamtion_signal_handler_ep(void);

/// The registered SS callback, null where there is none. To be read only.
extern ProtocolCallback_fp cbfp_ss;

/// The same for RJP.
extern ProtocolCallback_fp cbfp_rjp;

/// The same for EP.
extern ProtocolCallback_fp cbfp_ep;

/// @}

/// @name Packet test menu
/// Console dialogues for engineers on standard input and output. Codes are typed in hexadecimal,
/// and 99 leaves a dialogue, as the end of input does. The results of the first two mean nothing.
/// Where the file /etc/release exists the two packet dialogues refuse to run.
/// @{

/// Asks for an op code and a message code and executes that command, again and again. What is typed
/// ahead at a terminal is thrown away; in a pipe or a file each code has a line of its own.
int input_packet_data(void);

/// The same with a line of data bytes, each of one or two hexadecimal digits.
int input_multiple_packet_data(void);

/// A placeholder for a test that has nothing to offer. Returns 99, the choice that leaves it.
int input_ir_blaster(void);

/// Converts a line of hexadecimal tokens into at most 31 bytes in `out` and prints each. The first
/// three arguments are ignored. Returns the number of bytes.
int ospd_char_to_hexadecimal(int unused1, int unused2, int unused3, char* text, unsigned char* out);

/// Prints the bytes before the first zero byte of `array` and returns their number.
int ospd_print_array(unsigned char* array);

/// @}

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file
 * Client of the factory automation service, for applications in C (C89 and later) and in C++.
 *
 * The service is a process of its own on the set and owns the set's serial lines. The library
 * reaches it over the system message bus. Each function that talks to it makes one blocking call,
 * which ends when the service answers, or after the bus's default timeout of 25 seconds. Why a call
 * failed stands in the platform log, tag "FA_API".
 *
 * The first such call connects; there is nothing to initialise or to close. After a failure call
 * again: a bus that was not there is tried again, and a service that has restarted is found, though
 * a call at the very moment of the restart may fail. Only when the bus itself goes is the
 * connection lost for good: every later call of the process returns -1 and logs "err[The connection
 * is closed]", no callback arrives, and the process must be started again.
 *
 * Any thread may call any function. Only the registration and unregistration of one protocol are
 * for one thread at a time.
 *
 * A process has one connection to the system bus: the library uses the same one that g_bus_get()
 * gives to the application. GLib ends a process whose bus goes away; the library switches that off.
 */
#ifndef FA_API_AUTOMATION_API_H
#define FA_API_AUTOMATION_API_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** @name Control calls */
/** @{ */

/**
 * Copies the set's logs to USB storage. Returns 0 when the service answers with a non-zero result;
 * -1 when it answers 0 or does not answer.
 */
int automation_copy_log_to_usb(void);

/**
 * Changes the packet length of the serial source (SS) to `uiLen` bytes. Any value is passed on, for
 * the service to judge. Returns 0 when the service answers with a non-zero result; -1 when it
 * answers 0 or does not answer.
 */
int automation_change_packet_length_serial_source(unsigned int uiLen);

/**
 * Changes the baud rate of the external UART to 9600 or 115200 bits per second. Returns 0 when the
 * service answers with a non-zero result; -1 when it answers 0 or does not answer, and for any
 * other rate, which is not sent.
 */
int automation_change_baud_rate_ex_uart(unsigned int uibdRate);

/**
 * Closes the external UART. Returns 0 when the service answers with a non-zero result; -1 when it
 * answers 0 or does not answer.
 */
int automation_close_ex_uart(void);

/** @} */

/** @name Commands */
/** @{ */

/**
 * Executes the factory command of the numbers `data0`, which must not be 0, and `data1`. Returns 0
 * when the service answers, whatever its result; -1 when it does not answer, and where `data0` is
 * 0, which is not sent.
 */
int automation_execute_command(int data0, int data1);

/**
 * Executes a factory command with the `length` bytes (1 to 255) at `data`, which are only read
 * during the call. Returns 0 when the service answers, whatever its result; -1 when it does not
 * answer, and where `data0` or `length` is 0 or `data` is null, which is not sent.
 */
int automation_execute_command_with_data(int data0, int data1, const unsigned char* data,
                                         unsigned char length);

/**
 * Switches the set's local set, its regional configuration, and waits until the platform reports
 * it. `command` must be 806, `option` the number of a local set (0 to 96, not every number is one),
 * and the set must have fast boot. Returns 0 as soon as the platform reports that local set, even
 * where the service refused; -1 for wrong arguments, which are not sent, and when five readings,
 * which take a second, do not show it.
 */
int automation_execute_command_with_projector(int command, unsigned int option);

/** @} */

/** @name Packets */
/** @{ */

/**
 * Sends a packet over the external UART: `ulLength` bytes (1 to 8,000,000, as many as the system
 * bus carries) at `pData`, which are only read during the call. Returns 0 when the service answers
 * with a non-zero result; -1 when it answers 0 or does not answer, and for a packet that is null,
 * empty or too long or begins with a zero byte, which is not sent.
 */
int automation_send_message_by_ex_uart(const unsigned char* pData, unsigned int ulLength);

/**
 * Sends a packet as RJP protocol data: `ulLength` bytes (1 to 8,000,000, as many as the system bus
 * carries) at `pData`, which are only read during the call. Returns 0 when the service answers with
 * a non-zero result; -1 when it answers 0 or does not answer, and for a packet that is null, empty
 * or too long or begins with a zero byte, which is not sent.
 */
int automation_send_rjp_data(const unsigned char* pData, unsigned int ulLength);

/**
 * Sends an RS-232 acknowledgement for the protocol `eProtocolType`, at most 4; what its values
 * mean, negative ones included, is the service's matter. The packet is `ulLength` bytes (1 to
 * 8,000,000, as many as the system bus carries) at `pData`, which are only read during the call.
 * Returns 0 when the service answers with a non-zero result; -1 when it answers 0 or does not
 * answer, and for a protocol above 4 or a packet that is null, empty or too long or begins with a
 * zero byte, which is not sent.
 */
int automation_send_rs232_ack(int eProtocolType, unsigned int ulLength, const unsigned char* pData);

/** @} */

/**
 * @name Protocol events
 * The service announces data that has arrived on a serial protocol. The library then fetches it and
 * calls the application's callback. It has no thread of its own for that: callbacks arrive on the
 * thread that iterates one certain main context, and only while it does, for example in
 * g_main_loop_run(). It is the context that was the thread-default one of the thread whose call
 * connected; where that thread had none of its own, it is the global default context.
 */
/** @{ */

/**
 * Data that has arrived on a serial protocol. It belongs to the library and stays readable for
 * good, but the next data of the same protocol overwrites it, so copy what is needed later.
 */
typedef struct ProtocolData_s {
    int iSize; /**< the size as the service reports it, not checked against p_data */
    unsigned char p_data[256]; /**< the bytes; those after the last one are of earlier data */
} ProtocolData_s;

/**
 * A function of the application that takes data. It may call any function of the library,
 * unregistration included; further data waits while it runs. No exception may leave it.
 */
typedef void (*ProtocolCallback_fp)(ProtocolData_s*);

/**
 * Registers the one callback of the serial source (SS), which is called while the application
 * iterates the main context of the connection. Returns 0 when it is registered and the service's
 * signal is connected; -1 for null, which leaves an earlier callback in place, and without a
 * connection, which leaves none. Register once: a second registration replaces the callback, and
 * from then on data is fetched twice, which unregistering ends for one of the two.
 */
int automation_register_callback_serial_source(ProtocolCallback_fp callback_fp_ss);

/**
 * Registers the one callback of the RJP protocol, which is called while the application iterates
 * the main context of the connection. Returns 0 when it is registered and the service's signal is
 * connected; -1 for null, which leaves an earlier callback in place, and without a connection,
 * which leaves none. Register once: a second registration replaces the callback, and from then on
 * data is fetched twice, which unregistering ends for one of the two.
 */
int automation_register_callback_rjp_protocol(ProtocolCallback_fp callback_fp_rjp);

/**
 * Registers the one callback of the EP protocol, which is called while the application iterates the
 * main context of the connection. Returns 0 when it is registered and the service's signal is
 * connected; -1 for null, which leaves an earlier callback in place, and without a connection,
 * which leaves none. Register once: a second registration replaces the callback, and from then on
 * data is fetched twice, which unregistering ends for one of the two.
 */
int automation_register_callback_ep_protocol(ProtocolCallback_fp callback_fp_ep);

/**
 * Clears the callback of the serial source (SS) and disconnects from the service's signal. Always
 * returns 0, also where nothing is registered. A second call after one registration makes GLib warn
 * of a connection that is gone.
 */
int automation_unregister_callback_serial_source(void);

/**
 * Clears the callback of the RJP protocol and disconnects from the service's signal. Always returns
 * 0, also where nothing is registered. A second call after one registration makes GLib warn of a
 * connection that is gone.
 */
int automation_unregister_callback_rjp_protocol(void);

/**
 * Clears the callback of the EP protocol and disconnects from the service's signal. Always returns
 * 0, also where nothing is registered. A second call after one registration makes GLib warn of a
 * connection that is gone.
 */
int automation_unregister_callback_ep_protocol(void);

/**
 * Fetches the data that the service holds for the serial source (SS) and calls the callback with it
 * on the calling thread. Where the service has none, or no callback is registered, it only logs an
 * error. Registration connects it to the service's signal, so an application rarely calls it.
 */
void _autoamtion_signal_handler_ss(void); /* spelled so, and stays */

/**
 * Fetches the data that the service holds for the RJP protocol and calls the callback with it on
 * the calling thread. Where the service has none, or no callback is registered, it only logs an
 * error. Registration connects it to the service's signal, so an application rarely calls it.
 */
void _autoamtion_signal_handler_rjp(void);

/**
 * Fetches the data that the service holds for the EP protocol and calls the callback with it on the
 * calling thread. Where the service has none, or no callback is registered, it only logs an error.
 * Registration connects it to the service's signal, so an application rarely calls it.
 */
void _autoamtion_signal_handler_ep(void);

/** The registered callback of the serial source (SS); null where there is none. Only to be read. */
extern ProtocolCallback_fp cbfp_ss;

/** The registered callback of the RJP protocol; null where there is none. Only to be read. */
extern ProtocolCallback_fp cbfp_rjp;

/** The registered callback of the EP protocol; null where there is none. Only to be read. */
extern ProtocolCallback_fp cbfp_ep;

/** @} */

/**
 * @name Packet test menu
 * Console dialogues for engineers on standard input and output, for one person at a time.
 */
/** @{ */

/**
 * Asks for an op code and a message code, executes that command and prints its result, again and
 * again. Codes are hexadecimal numbers of up to 32 bits without a sign; 99 and the end of input
 * leave. What is typed ahead at a terminal is thrown away; in a pipe or a file each code has a line
 * of its own. Where the file /etc/release exists it refuses. Returns 0 in every case.
 */
int input_packet_data(void);

/**
 * Asks for an op code, a message code and a line of data, executes that command with the data and
 * prints its result, again and again. Codes are hexadecimal numbers of up to 32 bits without a
 * sign; 99 and the end of input leave. The message code ends its line: one character after it is
 * dropped, so that anything else than the line end makes what is left of that line the data. Data
 * is bytes of one or two hexadecimal digits with blanks between them; what a line has beyond 99
 * characters or 31 bytes is dropped. Where the file /etc/release exists it refuses. Returns 0 in
 * every case.
 */
int input_multiple_packet_data(void);

/**
 * Shows the screen of a test that has nothing to offer until the choice that leaves it, 99, and
 * returns that.
 */
int input_ir_blaster(void);

/**
 * Converts a line of hexadecimal tokens into bytes in `out`, which needs room for 31, and prints
 * each. The first three arguments are ignored. Returns the number of bytes; 0 where `text` or `out`
 * is null or the text empty.
 */
int ospd_char_to_hexadecimal(int unused1, int unused2, int unused3, char* text, unsigned char* out);

/**
 * Prints the bytes of `array` before its first zero byte, which it must have. Returns their number;
 * 0 where `array` is null.
 */
int ospd_print_array(unsigned char* array);

/** @} */

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

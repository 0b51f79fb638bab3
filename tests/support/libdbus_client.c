/* A peer in plain C that uses libdbus and no code of the framework. Runs one command, then ends.
 *
 *   introspect NAME                       prints the XML of the object
 *   call NAME CLASS METHOD [ARG]...       prints "result TEXT" or "error NAME"
 *   post NAME COUNT CLASS METHOD [ARG]... posts the call that often, without asking for a reply,
 *                                         prints "posted" when the bus has taken all, and stays
 *                                         until its standard input ends
 *   flood NAME COUNT SIZE                 posts that many calls of no method with a text of that
 *                                         size, then one report; goes on as post does
 *   count NAME COUNT                      posts that many reports, with the texts "number 0" and so
 *                                         on; goes on as post does
 *   crowd NAME COUNT                      reports on so many connections, prints "reported"; at the
 *                                         next line of its input posts one more on a new one
 *   report-twice NAME                     reports to the name and waits for the answer; prints
 *                                         "reported"; does so again at the next line of its input
 *   become NAME PROGRAM [WORD]...         reports to the name and waits for the answer; prints
 *                                         "reported"; at the next line of its input posts a second
 *                                         report, and runs the other program
 *   report-and-become NAME PROGRAM ...    posts a report, prints "posted", and runs the other
 *                                         program at the next line of its input
 *   stay                                  prints "staying" and stays until its input ends
 *   raw NAME PATH MEMBER [ARG]...         calls with the texts alone; prints as call does. The
 *                                         member may follow an interface and a full stop
 *   await NAME                            ends when the name has an owner
 *   queue NAME                            prints the processes in the queue for the name, in order
 *   monitor all                           prints "ready", then a line for each message on the bus:
 *                                           call SERIAL FROM TO PATH INTERFACE MEMBER FLAGS FORM
 *                                           return SERIAL FROM TO FORM
 *                                           error SERIAL FROM TO NAME FORM
 *                                           signal FROM TO PATH INTERFACE MEMBER FORM
 *                                         FORM is the signature and the arguments, the serial of
 *                                         an answer is that of its call, an absent word is "~".
 *                                         Texts are the words of ProbeText.h. Before the first
 *                                         message of a connection: process NAME NUMBER
 *   answer NAME SIZE                      claims the name, prints "ready", and answers calls with
 *                                         so long a text until it is killed; to any other method it
 *                                         says that it does not know it
 *   refuse NAME SIZE                      the same, with an error of such a text
 *   diagnose NAME SIZE                    the same as answer, for questions for its diagnosis alone
 *   destinations NAME                     the same, with the name to which each call was sent
 *   hold NAME                             claims the name, prints "ready", and a line for each call
 *                                         of any method: auto-start or no-auto-start, the
 *                                         interface, the member; answers none
 *   leave NAME                            claims the name, ends, and leaves the connection to a
 *                                         child, which prints "left" and stays until its input
 *                                         ends
 *   serve NAME COUNT [ANSWER]             claims the name, prints "ready", then one line for each
 *                                         of that many calls: the flags, signature, path,
 *                                         interface, member, class, method, number of arguments.
 *                                         Answers with "served" or, as ANSWER says, with an error,
 *                                         a number, nothing, two texts, or a noncharacter
 */
#include <dbus/dbus.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static const char* const object_path = "/QBHP/RPCEvent";
static const char* const interface_name = "QBHP.RPCEvent1";
enum { patience = 30000 }; /* milliseconds */

static void stop(const char* what) {
  fprintf(stderr, "libdbus_client: %s\n", what);
  exit(3);
}

static DBusConnection* connect_to_bus(void) {
  DBusError error = DBUS_ERROR_INIT;
  DBusConnection* connection = dbus_bus_get_private(DBUS_BUS_SESSION, &error);
  if (connection == NULL) stop(error.message);
  return connection;
}

static DBusMessage* new_call(const char* name, char** words, int count) {
  DBusMessage* message = dbus_message_new_method_call(name, object_path, interface_name, "Call");
  DBusMessageIter all;
  DBusMessageIter list;
  int i;
  if (message == NULL || count < 2) stop("no message");
  dbus_message_iter_init_append(message, &all);
  dbus_message_iter_append_basic(&all, DBUS_TYPE_STRING, &words[0]);
  dbus_message_iter_append_basic(&all, DBUS_TYPE_STRING, &words[1]);
  dbus_message_iter_open_container(&all, DBUS_TYPE_ARRAY, "s", &list);
  for (i = 2; i < count; ++i) dbus_message_iter_append_basic(&list, DBUS_TYPE_STRING, &words[i]);
  dbus_message_iter_close_container(&all, &list);
  dbus_message_set_auto_start(message, FALSE);
  return message;
}

static int print_answer(DBusConnection* connection, DBusMessage* message) {
  DBusError error = DBUS_ERROR_INIT;
  DBusMessage* reply =
      dbus_connection_send_with_reply_and_block(connection, message, patience, &error);
  const char* text = NULL;
  if (reply == NULL) {
    printf("error %s\n", error.name);
    return 0;
  }
  if (!dbus_message_get_args(reply, &error, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID)) {
    stop("an answer of another form");
  }
  printf("result %s\n", text);
  return 0;
}

static int introspect(DBusConnection* connection, const char* name) {
  return print_answer(
      connection,
      dbus_message_new_method_call(name, object_path, DBUS_INTERFACE_INTROSPECTABLE, "Introspect"));
}

static int raw(DBusConnection* connection, char** words, int count) {
  char* dot = strrchr(words[2], '.');
  const char* member = dot == NULL ? words[2] : dot + 1;
  DBusMessage* message;
  int i;
  if (dot != NULL) *dot = '\0';
  message = dbus_message_new_method_call(words[0], words[1],
                                         dot == NULL ? interface_name : words[2], member);
  if (message == NULL) stop("no message");
  for (i = 3; i < count; ++i) {
    dbus_message_append_args(message, DBUS_TYPE_STRING, &words[i], DBUS_TYPE_INVALID);
  }
  return print_answer(connection, message);
}

/* Calls with a class name of that many bytes, and that many empty texts. */
static int huge(DBusConnection* connection, const char* name, size_t name_size, size_t count) {
  const char* method_name = "helperExitNotify:";
  char* class_name = malloc(name_size + 1);
  const char** texts = malloc((count + 1) * sizeof *texts);
  size_t i;
  DBusMessage* message = dbus_message_new_method_call(name, object_path, interface_name, "Call");
  if (class_name == NULL || texts == NULL || message == NULL) stop("no memory");
  memset(class_name, 'a', name_size);
  class_name[name_size] = '\0';
  for (i = 0; i < count; ++i) texts[i] = "";
  dbus_message_append_args(message, DBUS_TYPE_STRING, &class_name, DBUS_TYPE_STRING, &method_name,
                           DBUS_TYPE_ARRAY, DBUS_TYPE_STRING, &texts, (int)count,
                           DBUS_TYPE_INVALID);
  free(class_name);
  free(texts);
  return print_answer(connection, message);
}

static void send_post(DBusConnection* connection, const char* name, char** words, int count) {
  DBusMessage* message = new_call(name, words, count);
  dbus_message_set_no_reply(message, TRUE);
  if (!dbus_connection_send(connection, message, NULL)) stop("no memory");
  dbus_message_unref(message);
}

/* The bus takes messages in order: when it answers this one, it has passed on the others. */
static void await_bus(DBusConnection* connection, const char* name) {
  dbus_connection_flush(connection);
  dbus_bus_name_has_owner(connection, name, NULL);
}

static void say(const char* word) {
  printf("%s\n", word);
  fflush(stdout);
}

static int stay(const char* word) {
  say(word);
  while (getchar() != EOF) {
  }
  return 0;
}

static int post(DBusConnection* connection, const char* name, int times, char** words, int count) {
  int i;
  for (i = 0; i < times; ++i) {
    send_post(connection, name, words, count);
    if (i % 1000 == 999) dbus_connection_flush(connection);
  }
  await_bus(connection, name);
  return stay("posted");
}

static char* const report_words[] = {
    "QBHPHelperControl", "checkServerOpenCallBack::::", "x", "1", "0", ""};
enum { report_count = 6 };

static void report(DBusConnection* connection, const char* name) {
  DBusMessage* message = new_call(name, (char**)report_words, report_count);
  DBusError error = DBUS_ERROR_INIT;
  if (dbus_connection_send_with_reply_and_block(connection, message, patience, &error) == NULL)
    stop(error.message);
}

static void await_line(void) {
  int byte;
  while ((byte = getchar()) != '\n') {
    if (byte == EOF) stop("no line");
  }
}

static int flood(DBusConnection* connection, const char* name, int times, size_t size) {
  char* words[] = {report_words[0], "nothing:", malloc(size + 1)};
  int i;
  if (words[2] == NULL) stop("no memory");
  memset(words[2], 'a', size);
  words[2][size] = '\0';
  for (i = 0; i < times; ++i) {
    send_post(connection, name, words, 3);
    dbus_connection_flush(connection);
  }
  free(words[2]);
  return post(connection, name, 1, (char**)report_words, report_count);
}

static int count(DBusConnection* connection, const char* name, int times) {
  char number[32];
  char* words[report_count];
  int i;
  memcpy(words, report_words, sizeof words);
  words[2] = number;
  for (i = 0; i < times; ++i) {
    snprintf(number, sizeof number, "number %d", i);
    send_post(connection, name, words, report_count);
  }
  await_bus(connection, name);
  return stay("posted");
}

static int report_twice(DBusConnection* connection, const char* name) {
  report(connection, name);
  say("reported");
  await_line();
  report(connection, name);
  return stay("reported");
}

static int crowd(DBusConnection* connection, const char* name, int count) {
  int i;
  for (i = 0; i < count; ++i) {
    if (i > 0) connection = connect_to_bus();
    report(connection, name);
  }
  say("reported");
  await_line();
  return post(connect_to_bus(), name, 1, (char**)report_words, report_count);
}

static int become(DBusConnection* connection, const char* name, char** program, int is_known) {
  if (is_known) {
    report(connection, name);
    say("reported");
    await_line();
  }
  send_post(connection, name, (char**)report_words, report_count);
  await_bus(connection, name);
  if (!is_known) {
    say("posted");
    await_line();
  }
  execv(program[0], program);
  stop("no such program");
  return 3;
}

static int await_owner(DBusConnection* connection, const char* name) {
  DBusError error = DBUS_ERROR_INIT;
  char rule[512];
  snprintf(rule, sizeof rule,
           "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='%s'", name);
  dbus_bus_add_match(connection, rule, &error);
  while (!dbus_bus_name_has_owner(connection, name, NULL)) {
    /* The signal may have been read together with the answer: then no more can be read. */
    DBusMessage* message = dbus_connection_pop_message(connection);
    if (message != NULL) {
      dbus_message_unref(message);
    } else if (!dbus_connection_read_write(connection, patience)) {
      stop("the bus is gone");
    }
  }
  return 0;
}

static int print_queue(DBusConnection* connection, const char* name) {
  DBusError error = DBUS_ERROR_INIT;
  char** owners = NULL;
  int count = 0;
  int i;
  DBusMessage* reply;
  DBusMessage* message = dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                      DBUS_INTERFACE_DBUS, "ListQueuedOwners");
  dbus_message_append_args(message, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID);
  reply = dbus_connection_send_with_reply_and_block(connection, message, patience, &error);
  if (reply == NULL) stop(error.message);
  if (!dbus_message_get_args(reply, &error, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING, &owners, &count,
                             DBUS_TYPE_INVALID)) {
    stop(error.message);
  }
  for (i = 0; i < count; ++i) {
    dbus_uint32_t process = 0;
    DBusMessage* question = dbus_message_new_method_call(
        DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "GetConnectionUnixProcessID");
    dbus_message_append_args(question, DBUS_TYPE_STRING, &owners[i], DBUS_TYPE_INVALID);
    reply = dbus_connection_send_with_reply_and_block(connection, question, patience, &error);
    if (reply == NULL) stop(error.message);
    dbus_message_get_args(reply, &error, DBUS_TYPE_UINT32, &process, DBUS_TYPE_INVALID);
    printf("%u ", process);
  }
  printf("\n");
  return 0;
}

static void print_call(DBusMessage* message) {
  const char* class_name = NULL;
  const char* method_name = NULL;
  char** arguments = NULL;
  int count = 0;
  DBusError error = DBUS_ERROR_INIT;
  if (!dbus_message_get_args(message, &error, DBUS_TYPE_STRING, &class_name, DBUS_TYPE_STRING,
                             &method_name, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING, &arguments, &count,
                             DBUS_TYPE_INVALID)) {
    stop(error.message);
  }
  printf("%s %s %s %s %s %s %s %s %d\n", dbus_message_get_no_reply(message) ? "no-reply" : "reply",
         dbus_message_get_auto_start(message) ? "auto-start" : "no-auto-start",
         dbus_message_get_signature(message), dbus_message_get_path(message),
         dbus_message_get_interface(message), dbus_message_get_member(message), class_name,
         method_name, count);
  fflush(stdout);
}

static DBusMessage* new_answer(DBusMessage* call, const char* answer) {
  const char* text = strcmp(answer, "noncharacter") == 0 ? "\xef\xbf\xbf" : "served";
  const char* other = "other";
  const dbus_uint32_t number = 7;
  DBusMessage* reply;
  if (strcmp(answer, "error") == 0) return dbus_message_new_error(call, DBUS_ERROR_FAILED, "no");
  reply = dbus_message_new_method_return(call);
  if (strcmp(answer, "nothing") == 0) return reply;
  if (strcmp(answer, "number") == 0) {
    dbus_message_append_args(reply, DBUS_TYPE_UINT32, &number, DBUS_TYPE_INVALID);
    return reply;
  }
  dbus_message_append_args(reply, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
  if (strcmp(answer, "two") == 0) {
    dbus_message_append_args(reply, DBUS_TYPE_STRING, &other, DBUS_TYPE_INVALID);
  }
  return reply;
}

static int serve(DBusConnection* connection, const char* name, int wanted, const char* answer) {
  DBusError error = DBUS_ERROR_INIT;
  if (dbus_bus_request_name(connection, name, 0, &error) < 0) stop(error.message);
  printf("ready\n");
  fflush(stdout);
  while (wanted > 0) {
    DBusMessage* message;
    if (!dbus_connection_read_write(connection, patience)) stop("the bus is gone");
    while (wanted > 0 && (message = dbus_connection_pop_message(connection)) != NULL) {
      if (dbus_message_is_method_call(message, interface_name, "Call")) {
        print_call(message);
        --wanted;
        if (!dbus_message_get_no_reply(message)) {
          dbus_connection_send(connection, new_answer(message, answer), NULL);
        }
      }
      dbus_message_unref(message);
    }
  }
  dbus_connection_flush(connection);
  return 0;
}

static int hold(DBusConnection* connection, const char* name) {
  DBusError error = DBUS_ERROR_INIT;
  if (dbus_bus_request_name(connection, name, 0, &error) < 0) stop(error.message);
  say("ready");
  while (dbus_connection_read_write(connection, -1)) {
    DBusMessage* message;
    while ((message = dbus_connection_pop_message(connection)) != NULL) {
      if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL) {
        printf("%s %s %s\n", dbus_message_get_auto_start(message) ? "auto-start" : "no-auto-start",
               dbus_message_get_interface(message), dbus_message_get_member(message));
        fflush(stdout);
      }
      dbus_message_unref(message);
    }
  }
  return 0;
}

/* The bus goes on to name the parent, whose connection is still open, as the owner. */
static int leave(DBusConnection* connection, const char* name) {
  DBusError error = DBUS_ERROR_INIT;
  int alive[2];
  char byte;
  if (dbus_bus_request_name(connection, name, 0, &error) < 0) stop(error.message);
  if (pipe(alive) != 0) stop("no pipe");
  switch (fork()) {
    case -1:
      stop("no child");
      break;
    case 0:
      close(alive[1]);
      if (read(alive[0], &byte, 1) != 0) stop("the parent wrote");
      return stay("left");
    default:
      break;
  }
  _exit(0);
}

static char* text_of_size(size_t size) {
  char* text = malloc(size + 1);
  if (text == NULL) stop("no memory");
  memset(text, 'a', size);
  text[size] = '\0';
  return text;
}

static const char* answered_interface = "QBHP.RPCEvent1";
static const char* answered_member = "Call";

/* Prints the destination of each call. Answers with the text, with an error of that text, or, if
   the text is null, with the destination. */
static int answer(DBusConnection* connection, const char* name, const char* text, int as_error) {
  DBusError error = DBUS_ERROR_INIT;
  if (dbus_bus_request_name(connection, name, 0, &error) < 0) stop(error.message);
  printf("ready\n");
  fflush(stdout);
  while (dbus_connection_read_write(connection, -1)) {
    DBusMessage* message;
    while ((message = dbus_connection_pop_message(connection)) != NULL) {
      if (dbus_message_is_method_call(message, answered_interface, answered_member)) {
        const char* destination = dbus_message_get_destination(message);
        const char* result = text != NULL ? text : destination;
        DBusMessage* reply = as_error ? dbus_message_new_error(message, "com.Acme.Error", result)
                                      : dbus_message_new_method_return(message);
        if (!as_error) {
          dbus_message_append_args(reply, DBUS_TYPE_STRING, &result, DBUS_TYPE_INVALID);
        }
        printf("%s\n", destination);
        fflush(stdout);
        dbus_connection_send(connection, reply, NULL);
        dbus_message_unref(reply);
      } else if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL) {
        DBusMessage* reply = dbus_message_new_error(message, DBUS_ERROR_UNKNOWN_METHOD, "unknown");
        dbus_connection_send(connection, reply, NULL);
        dbus_message_unref(reply);
      }
      dbus_message_unref(message);
    }
  }
  return 0;
}

static void print_word(const char* text) {
  const char* c;
  int plain = text != NULL && *text != '\0' && strchr("%~*+#", *text) == NULL;
  if (text == NULL) {
    printf(" ~");
    return;
  }
  for (c = text; *c != '\0'; ++c) plain = plain && *c > ' ' && *c < '\x7f';
  printf(plain ? " %s" : " %%", text);
  for (c = text; !plain && *c != '\0'; ++c) printf("%02x", (unsigned)(unsigned char)*c);
}

static void print_arguments(DBusMessageIter* all) {
  int type;
  for (; (type = dbus_message_iter_get_arg_type(all)) != DBUS_TYPE_INVALID;
       dbus_message_iter_next(all)) {
    if (type == DBUS_TYPE_STRING) {
      const char* text = NULL;
      dbus_message_iter_get_basic(all, &text);
      print_word(text);
    } else if (type == DBUS_TYPE_ARRAY) {
      DBusMessageIter list;
      dbus_message_iter_recurse(all, &list);
      printf(" [");
      print_arguments(&list);
      printf(" ]");
    } else {
      printf(" ?");
    }
  }
}

static void print_message(DBusMessage* message) {
  DBusMessageIter all;
  switch (dbus_message_get_type(message)) {
    case DBUS_MESSAGE_TYPE_METHOD_CALL:
      printf("call %u", dbus_message_get_serial(message));
      break;
    case DBUS_MESSAGE_TYPE_METHOD_RETURN:
      printf("return %u", dbus_message_get_reply_serial(message));
      break;
    case DBUS_MESSAGE_TYPE_ERROR:
      printf("error %u", dbus_message_get_reply_serial(message));
      break;
    default:
      printf("signal");
  }
  print_word(dbus_message_get_sender(message));
  print_word(dbus_message_get_destination(message));
  if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_ERROR) {
    print_word(dbus_message_get_error_name(message));
  } else if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_METHOD_RETURN) {
    print_word(dbus_message_get_path(message));
    print_word(dbus_message_get_interface(message));
    print_word(dbus_message_get_member(message));
  }
  if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL) {
    printf(" %s,%s", dbus_message_get_no_reply(message) ? "no-reply" : "reply",
           dbus_message_get_auto_start(message) ? "auto-start" : "no-auto-start");
  }
  print_word(dbus_message_get_signature(message));
  if (dbus_message_iter_init(message, &all)) print_arguments(&all);
  printf("\n");
}

/* Prints the process of a connection once. One that has ended has the process 0. */
static void print_process(DBusConnection* connection, const char* name) {
  static char
      is_printed[65536]; /* by the bus's number; not each bus shows how a connection begins */
  DBusError error = DBUS_ERROR_INIT;
  DBusMessage* question;
  DBusMessage* answer;
  dbus_uint32_t process = 0;
  int number;
  if (name == NULL || strncmp(name, ":1.", 3) != 0) return;
  number = atoi(name + 3);
  if (number < 0 || number >= (int)sizeof is_printed || is_printed[number]) return;
  is_printed[number] = 1;
  question = dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS,
                                          "GetConnectionUnixProcessID");
  if (question == NULL) stop("no memory");
  dbus_message_append_args(question, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID);
  answer = dbus_connection_send_with_reply_and_block(connection, question, patience, &error);
  if (answer != NULL) {
    dbus_message_get_args(answer, &error, DBUS_TYPE_UINT32, &process, DBUS_TYPE_INVALID);
    dbus_message_unref(answer);
  }
  dbus_error_free(&error);
  dbus_message_unref(question);
  printf("process %s %u\n", name, process);
}

static int monitor(DBusConnection* connection) {
  DBusConnection* asking = connect_to_bus();
  DBusError error = DBUS_ERROR_INIT;
  const char** rules = NULL;
  dbus_uint32_t flags = 0;
  DBusMessage* message = dbus_message_new_method_call(
      DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, "org.freedesktop.DBus.Monitoring", "BecomeMonitor");
  if (message == NULL) stop("no memory");
  dbus_message_append_args(message, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING, &rules, 0, DBUS_TYPE_UINT32,
                           &flags, DBUS_TYPE_INVALID);
  dbus_connection_set_route_peer_messages(connection, TRUE);
  if (dbus_connection_send_with_reply_and_block(connection, message, patience, &error) == NULL) {
    stop(error.message);
  }
  say("ready");
  while (dbus_connection_read_write(connection, -1)) {
    while ((message = dbus_connection_pop_message(connection)) != NULL) {
      print_process(asking, dbus_message_get_sender(message));
      print_message(message);
      dbus_message_unref(message);
    }
    fflush(stdout);
  }
  return 0;
}

int main(int argc, char** argv) {
  DBusConnection* connection;
  if (argc == 2 && strcmp(argv[1], "stay") == 0) return stay("staying");
  if (argc < 3) stop("no command");
  connection = connect_to_bus();
  if (strcmp(argv[1], "introspect") == 0) return introspect(connection, argv[2]);
  if (strcmp(argv[1], "await") == 0) return await_owner(connection, argv[2]);
  if (strcmp(argv[1], "queue") == 0) return print_queue(connection, argv[2]);
  if (strcmp(argv[1], "monitor") == 0) return monitor(connection);
  if (strcmp(argv[1], "serve") == 0 && (argc == 4 || argc == 5)) {
    return serve(connection, argv[2], atoi(argv[3]), argc == 5 ? argv[4] : "text");
  }
  if (strcmp(argv[1], "leave") == 0) return leave(connection, argv[2]);
  if (strcmp(argv[1], "hold") == 0) return hold(connection, argv[2]);
  if (strcmp(argv[1], "answer") == 0 && argc == 4) {
    return answer(connection, argv[2], text_of_size((size_t)atol(argv[3])), 0);
  }
  if (strcmp(argv[1], "refuse") == 0 && argc == 4) {
    return answer(connection, argv[2], text_of_size((size_t)atol(argv[3])), 1);
  }
  if (strcmp(argv[1], "diagnose") == 0 && argc == 4) {
    answered_interface = "QBHP.Diagnosis1";
    answered_member = "Text";
    return answer(connection, argv[2], text_of_size((size_t)atol(argv[3])), 0);
  }
  if (strcmp(argv[1], "destinations") == 0) return answer(connection, argv[2], NULL, 0);
  if (strcmp(argv[1], "raw") == 0 && argc >= 5) return raw(connection, argv + 2, argc - 2);
  if (strcmp(argv[1], "huge") == 0 && argc == 5) {
    return huge(connection, argv[2], (size_t)atol(argv[3]), (size_t)atol(argv[4]));
  }
  if (strcmp(argv[1], "flood") == 0 && argc == 5) {
    return flood(connection, argv[2], atoi(argv[3]), (size_t)atol(argv[4]));
  }
  if (strcmp(argv[1], "count") == 0 && argc == 4) {
    return count(connection, argv[2], atoi(argv[3]));
  }
  if (strcmp(argv[1], "crowd") == 0 && argc == 4) return crowd(connection, argv[2], atoi(argv[3]));
  if (strcmp(argv[1], "report-twice") == 0) return report_twice(connection, argv[2]);
  if (strcmp(argv[1], "become") == 0 && argc >= 4) {
    return become(connection, argv[2], argv + 3, 1);
  }
  if (strcmp(argv[1], "report-and-become") == 0 && argc >= 4) {
    return become(connection, argv[2], argv + 3, 0);
  }
  if (strcmp(argv[1], "call") == 0 && argc >= 5) {
    return print_answer(connection, new_call(argv[2], argv + 3, argc - 3));
  }
  if (strcmp(argv[1], "post") == 0 && argc >= 6) {
    return post(connection, argv[2], atoi(argv[3]), argv + 4, argc - 4);
  }
  stop("unknown command");
  return 3;
}

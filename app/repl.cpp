#include "app/repl.h"

#include "app/evaluation.h"
#include "app/main_module_prelude.h"
#include "app/report.h"

#include <string>

namespace brimora {
namespace {

// Makes the session: an object with read() and run(entry), kept in Python
// between evaluations. Runs once, outside the sandbox. SIGINT is Python's
// (Python::handle_signals): Ctrl-C raises KeyboardInterrupt, and a blocking
// call (time.sleep, the terminal read) ends at once.
constexpr std::string_view session_body = R"(import code, functools, linecache, os

class Session:
    def __init__(self, history_file):
        self.namespace = fresh_main_namespace()
        self.console = code.InteractiveConsole(self.namespace, filename="<stdin>")
        self.entries = 0
        self.history_file = history_file
        self.editor = None
        # python3's own line editor, when the terminal allows it.
        if sys.stdin.isatty() and sys.stdout.isatty():
            try:
                from _pyrepl.main import CAN_USE_PYREPL
                if CAN_USE_PYREPL:
                    from _pyrepl import readline, simple_interact
                    readline._setup(self.namespace)
                    self.editor = readline
                    self.more_lines = functools.partial(simple_interact._more_lines, self.console)
                    self.strip_final_indent = simple_interact._strip_final_indent
            except Exception:
                self.editor = None
        if self.editor is None:
            try:
                import readline  # line editing for input(), where available
            except ImportError:
                pass
        self.load_history()

    def history(self):
        if self.editor is not None:
            return self.editor
        return sys.modules.get("readline")

    def load_history(self):
        history = self.history()
        if history is not None and os.path.exists(self.history_file):
            try:
                history.read_history_file(self.history_file)
            except (OSError, ValueError):
                pass

    def save_history(self):
        history = self.history()
        if history is not None:
            try:
                history.write_history_file(self.history_file)
            except OSError:
                pass

    def read(self):
        # The next entry; "" after Ctrl-C, None at the end of the input.
        ps1, ps2 = getattr(sys, "ps1", ">>> "), getattr(sys, "ps2", "... ")
        try:
            try:
                sys.stdout.flush()
            except Exception:
                pass
            if self.editor is not None:
                entry = self.editor.multiline_input(self.more_lines, ps1, ps2)
                if entry.strip() in ("exit", "quit") and entry.strip() not in self.namespace:
                    return None
            else:
                entry = self.read_lines(ps1, ps2)
            self.save_history()
            return entry
        except EOFError:
            if self.editor is None and sys.stdin.isatty():
                sys.stdout.write("\n")
            return None
        except KeyboardInterrupt:
            if self.editor is not None:
                reader = self.editor._get_reader()
                if reader.input_trans is reader.isearch_trans:
                    reader.do_cmd(("isearch-end", [""]))
                reader.pos = len(reader.get_unicode())
                reader.dirty = True
                reader.refresh()
                reader.in_bracketed_paste = False
            sys.stdout.write("\nKeyboardInterrupt\n")
            return ""

    def read_lines(self, ps1, ps2):
        # Without the line editor: lines until the entry is complete. No
        # prompts when the input is no terminal, as python3.
        interactive = sys.stdin.isatty()
        lines = []
        while True:
            line = input((ps2 if lines else ps1) if interactive else "")
            lines.append(line)
            source = "\n".join(lines)
            try:
                if self.console.compile(source, "<stdin>", "single") is not None:
                    return source
            except (OverflowError, SyntaxError, ValueError):
                return source
            if len(lines) > 1 and not line.strip():
                return source

    def run(self, entry):
        # Runs an entry as python3's prompt does. The exit status when the
        # code leaves (sys.exit), else None. The host's own stop (interrupt,
        # time limit) is no Exception: it ends the evaluation.
        if self.editor is not None:
            entry = self.strip_final_indent(entry)
        if not entry.strip():
            return None
        name = f"<python-input-{self.entries}>"
        self.entries += 1
        linecache._register_code(name, entry, "<stdin>")
        try:
            compiled = self.console.compile(entry, name, "single")
            if compiled is None:
                compiled = compile(entry + "\n", name, "single")
        except (OverflowError, SyntaxError, ValueError):
            self.console.showsyntaxerror(name, source=entry)
            return None
        try:
            exec(compiled, self.namespace)
        except SystemExit as leaving:
            return exit_status(leaving.code)
        except (Exception, KeyboardInterrupt):
            self.console.showtraceback()
        return None

print(f"Python {sys.version} on {sys.platform}", file=sys.stderr)
print("Inside the Tesk host: import tesk and its modules. Ctrl-D leaves.", file=sys.stderr)
return Session(history_file)
)";

// Where the history is kept: $BRIMORA_HISTORY, else ~/.brimora_python_history.
std::string history_file() {
    if (char const* chosen = std::getenv("BRIMORA_HISTORY"); chosen != nullptr && *chosen != '\0') return chosen;
    char const* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : ".") + "/.brimora_python_history";
}

} // namespace

int run_repl(Python const& python, ReplRun const& options) {
    Python const& reader = python; // unsandboxed, as every handle starts
    Python runner = python;
    if (Outcome chosen = runner.set_sandbox(sandbox_of(options)); !chosen) return report_error(chosen.error());

    std::string const setup = std::string(main_module_prelude) + std::string(session_body);
    Outcome session = reader.evaluate(tesk::String(setup), Scope().local("history_file", tesk::String(history_file())));
    if (!session) return report_error(session.error());

    while (true) {
        Outcome entry = reader.evaluate("return session.read()", Scope().local("session", session.value()));
        if (!entry) return report_error(entry.error());
        auto text = entry.get<tesk::String>();
        if (!text) return 0; // Ctrl-D
        if (text->isEmpty()) continue; // Ctrl-C cancelled the line

        if (options.timeout) {
            if (Outcome limited = runner.set_time_limit(*options.timeout); !limited)
                return report_error(limited.error());
        }
        Outcome ran = runner.evaluate("return session.run(entry)",
                                      Scope().local("session", session.value()).local("entry", *text));
        if (options.timeout) (void)runner.set_time_limit(0);
        if (!ran) {
            report_error(ran.error()); // stopped (time limit), or refused by the sandbox: the session goes on
            continue;
        }
        if (auto status = ran.get<std::int64_t>()) return static_cast<int>(*status);
    }
}

} // namespace brimora

#include "cli/CommandLine.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <thread>
#include <variant>

#include "cli/Catalogue.h"
#include "cli/HelpText.h"
#include "cli/JsonReport.h"
#include "cli/Options.h"
#include "cli/Signals.h"
#include "cli/SystemLog.h"
#include "cli/TextReport.h"
#include "engine/UninstallEngine.h"
#include "platform/SystemAdapters.h"
#include "target/InventoryBuilder.h"

namespace cli {
namespace {

// A running Tavio that is never asked to quit, for --no-quit: the engine then
// finds it still running when its wait, of no length, ends, and changes nothing.
class NeverAskToQuit final : public target::ProcessControlling {
  public:
    explicit NeverAskToQuit(std::shared_ptr<const target::ProcessControlling> processes)
        : processes_(std::move(processes)) {}
    bool isRunning() const override { return processes_->isRunning(); }
    Running lookForCopies() const override { return processes_->lookForCopies(); }
    void requestQuit() const override {}

  private:
    std::shared_ptr<const target::ProcessControlling> processes_;
};

engine::UninstallEngine makeEngine(const target::UninstallContext& context,
                                   const Options& options) {
    platform::SystemAdapters adapters = platform::SystemAdapters::make(context);
    std::chrono::milliseconds timeout = options.quitTimeout;
    if (options.noQuit) {
        adapters.processes = std::make_shared<NeverAskToQuit>(std::move(adapters.processes));
        timeout = std::chrono::milliseconds(0);
    }
    return {context, std::move(adapters.processes), std::move(adapters.preferences),
            std::move(adapters.verifier), timeout};
}

// Everything one invocation works with.
struct Invocation {
    Options options;
    Catalogue texts;
    engine::UninstallEngine engine;
    base::UniqueFd signals;
    bool progress = false;  // progress lines on standard error
};

void print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

void printError(const std::string& text) {
    std::fputs(text.c_str(), stderr);
    std::fflush(stderr);
}

int exitStatusOf(const Summary& summary) {
    using Result = Summary::Result;
    switch (summary.result) {
        case Result::didNotQuit:
            return kTryLater;
        case Result::incomplete:
            return kItemsLeft;
        case Result::preview:
        case Result::complete:
        case Result::cancelled:
            break;
    }
    return kNothingLeft;
}

// Prints the summary as asked (text, JSON or nothing), logs a run, and gives
// the exit status.
int finish(const Invocation& run, const Summary& summary) {
    if (run.options.json) {
        print(jsonDocument(summary));
    } else if (!run.options.quiet) {
        print(summaryText(summary, run.texts));
    }
    logRun(summary, run.engine.context.userID);
    return exitStatusOf(summary);
}

Summary summaryOf(const Invocation& run, Summary::Result result, std::vector<Row> rows = {}) {
    return {result, run.engine.context.userName, UT_VERSION, std::move(rows)};
}

// Nothing to remove: the scan is the report. What the scan kept (a copy that
// is not Tavio's, say) is left, with its reason; nothing is asked to quit.
Summary summaryWithoutRun(const Invocation& run, const target::Inventory& inventory) {
    std::vector<Row> rows = previewRows(inventory);
    bool left = false;
    for (auto& row : rows) {
        if (row.outcome == Row::Outcome::wouldKeep) {
            row.outcome = Row::Outcome::left;
            row.leftovers.push_back({row.location, *row.reason});
            left = true;
        } else {
            row.outcome = Row::Outcome::alreadyGone;
        }
    }
    return summaryOf(run, left ? Summary::Result::incomplete : Summary::Result::complete,
                     std::move(rows));
}

// Waits for the next line of the terminal, or a signal: the line (empty at
// the end of input), or the signal's number.
std::variant<std::string, int> readAnswer(int signalFD) {
    std::string line;
    while (true) {
        pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {signalFD, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            continue;  // interrupted: poll again
        }
        if (fds[1].revents != 0) {
            if (const auto signal = Signals::take(signalFD)) {
                return *signal;
            }
        }
        if (fds[0].revents == 0) {
            continue;
        }
        char byte;
        const ssize_t got = ::read(STDIN_FILENO, &byte, 1);
        if (got <= 0 || byte == '\n') {
            return line;
        }
        line += byte;
    }
}

// Shows the review on the terminal and asks. Yes is "y" or "yes", or the
// first letter of the word for yes in the user's language; anything else,
// the end of input included, is no. Gives the signal's number if one came.
std::variant<bool, int> confirm(const Invocation& run, const target::Inventory& inventory) {
    printError(reviewText(inventory, run.texts) + "\n" +
               run.texts.text(QT_TRANSLATE_NOOP("CommandLine", "Remove these items? [y/N] ")));
    auto answer = readAnswer(run.signals.get());
    if (const int* signal = std::get_if<int>(&answer)) {
        printError("\n");
        return *signal;
    }
    const std::string& line = std::get<std::string>(answer);
    const std::string yes = run.texts.text(QT_TRANSLATE_NOOP("CommandLine", "yes"));
    const bool agreed = line == "y" || line == "Y" || line == "yes" || line == yes ||
                        (line.size() == 1 && !yes.empty() && std::tolower(line[0]) == yes[0]);
    return agreed;
}

// What the engine's events tell the user on standard error, when it is a
// terminal, and whether removal has begun (from then on, no signal stops the
// run).
class Progress {
  public:
    Progress(const Invocation& run, std::size_t total) : run_(run), total_(total) {}

    bool removing() const { return removing_; }

    void operator()(const engine::UninstallEvent& event) {
        using Kind = engine::UninstallEvent::Kind;
        if (event.kind() == Kind::removing) {
            removing_ = true;
            ++started_;
            if (run_.progress) {
                printError(
                    run_.texts.text(QT_TRANSLATE_NOOP("CommandLine", "Removing (%1 of %2): "),
                                    std::to_string(started_), std::to_string(total_)) +
                    categoryTitle(event.item()->category, run_.texts) + ", " +
                    event.item()->displayPath + "\n");
            }
        } else if (event.kind() == Kind::waitingForQuit && run_.progress) {
            printError(
                run_.texts.text(QT_TRANSLATE_NOOP("WorkingView", "Waiting for Tavio to Quit…")) +
                "\n");
        }
    }

  private:
    const Invocation& run_;
    std::size_t total_;
    std::size_t started_ = 0;
    std::atomic<bool> removing_{false};
};

// Waits until `doneFD` becomes readable, taking the signals meanwhile: the
// first one that comes before removal begins stops the worker.
void waitTaking(const Invocation& run,
                int doneFD,
                const Progress& progress,
                std::jthread& worker,
                std::optional<int>& stoppedBy) {
    while (true) {
        pollfd fds[2] = {{doneFD, POLLIN, 0}, {run.signals.get(), POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            continue;
        }
        if (fds[0].revents != 0) {
            return;
        }
        const auto signal = Signals::take(run.signals.get());
        if (!signal || stoppedBy) {
            continue;
        }
        stoppedBy = signal;
        if (!progress.removing()) {
            worker.request_stop();
        } else if (run.progress) {
            printError(
                run.texts.text(QT_TRANSLATE_NOOP(
                    "CommandLine", "Removal has begun; it finishes before the program ends.")) +
                "\n");
        }
    }
}

// Runs the engine on a thread of its own while this one takes the signals:
// one that comes before removal begins stops the run with nothing changed;
// after that, the run goes on to its end (as the window's guard does).
engine::UninstallReport runEngine(const Invocation& run,
                                  const target::Inventory& inventory,
                                  std::optional<int>& stoppedBy) {
    int done[2];
    if (::pipe2(done, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    base::UniqueFd doneRead(done[0]), doneWrite(done[1]);
    Progress progress(run, inventory.removableItems().size());
    engine::UninstallReport report;
    std::jthread worker([&](const std::stop_token& stop) {
        report = run.engine.run(
            inventory, [&](const engine::UninstallEvent& event) { progress(event); }, stop);
        const char byte = 1;
        (void)::write(doneWrite.get(), &byte, 1);
    });
    waitTaking(run, doneRead.get(), progress, worker, stoppedBy);
    worker.join();
    return report;
}

Summary summaryOfRun(const Invocation& run, const engine::UninstallReport& report) {
    using engine::UninstallOutcome;
    switch (report.outcome) {
        case UninstallOutcome::completed:
            return summaryOf(run, Summary::Result::complete, reportRows(report));
        case UninstallOutcome::incomplete:
            return summaryOf(run, Summary::Result::incomplete, reportRows(report));
        case UninstallOutcome::didNotQuit:
            return summaryOf(run, Summary::Result::didNotQuit);
        case UninstallOutcome::cancelled:
            return summaryOf(run, Summary::Result::cancelled);
    }
    return summaryOf(run, Summary::Result::incomplete, reportRows(report));
}

int removeAfterReview(Invocation& run, const target::Inventory& inventory) {
    if (!run.options.yes) {
        if (::isatty(STDIN_FILENO) == 0) {
            printError(run.texts.text(QT_TRANSLATE_NOOP(
                           "CommandLine",
                           "Nothing was changed: there is no terminal to ask on. Add --yes to "
                           "remove without asking.")) +
                       "\n");
            return kUsage;
        }
        const auto agreed = confirm(run, inventory);
        if (const int* signal = std::get_if<int>(&agreed)) {
            return kSignalBase + *signal;
        }
        if (!std::get<bool>(agreed)) {
            printError(run.texts.text(QT_TRANSLATE_NOOP("CommandLine", "Nothing was changed.")) +
                       "\n");
            return kNothingLeft;
        }
    }
    std::optional<int> stoppedBy;
    const engine::UninstallReport report = runEngine(run, inventory, stoppedBy);
    if (report.outcome == engine::UninstallOutcome::cancelled && stoppedBy) {
        (void)finish(run, summaryOfRun(run, report));
        return kSignalBase + *stoppedBy;
    }
    return finish(run, summaryOfRun(run, report));
}

int act(Invocation& run) {
    const target::Inventory inventory =
        target::InventoryBuilder{run.engine.context, run.engine.verifier, run.engine.preferences}
            .build();
    // A signal that came while scanning ends the program now, with nothing
    // changed, saying so as a run stopped by one does.
    if (const auto signal = Signals::take(run.signals.get())) {
        (void)finish(run, summaryOf(run, Summary::Result::cancelled));
        return kSignalBase + *signal;
    }
    if (run.options.action == Options::Action::list) {
        if (!run.options.json && !run.options.quiet) {
            print(reviewText(inventory, run.texts) + "\n");
        }
        (void)finish(run, summaryOf(run, Summary::Result::preview, previewRows(inventory)));
        return kNothingLeft;
    }
    if (inventory.removableItems().empty()) {
        return finish(run, summaryWithoutRun(run, inventory));
    }
    return removeAfterReview(run, inventory);
}

}  // namespace

int runCommandLine(const std::vector<std::string>& arguments) {
    const auto parsed = parseOptions(arguments);
    if (const auto* error = std::get_if<UsageError>(&parsed)) {
        printError("uninstall-tavio: " + error->message +
                   "\nTry 'uninstall-tavio --help' for more information.\n");
        return kUsage;
    }
    const Options& options = std::get<Options>(parsed);
    if (options.action == Options::Action::help) {
        print(helpText());
        return kNothingLeft;
    }
    if (options.action == Options::Action::version) {
        print("uninstall-tavio " UT_VERSION "\n");
        return kNothingLeft;
    }
    Catalogue texts(chooseLanguage([](const char* name) { return std::getenv(name); }));
    const target::UninstallContext context = target::UninstallContext::current();
    Invocation run{options, std::move(texts), makeEngine(context, options), Signals::open(),
                   ::isatty(STDERR_FILENO) != 0 && !options.quiet};
    if (!run.signals) {
        throw std::runtime_error("signalfd failed");
    }
    run.texts.installForCore();
    return act(run);
}

}  // namespace cli

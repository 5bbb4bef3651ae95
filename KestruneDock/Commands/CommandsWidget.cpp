#include "KestruneDock/Commands/CommandsWidget.h"

#include <algorithm>
#include <cmath>

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <nlohmann/json.hpp>

#include "KestruneDock/WidgetViews/WidgetCard.h"
#include "KestruneKit/DevTools/ShellCommandRunner.h"

namespace kestrune {

namespace {

const QString caption = QStringLiteral("Commands");

QString outcomeText(const ShellCommandResult& result)
{
    double seconds = std::chrono::duration<double>(result.ended - result.started).count();
    QString took = seconds < 1 ? QStringLiteral("under a second") : QStringLiteral("%1 s").arg(std::lround(seconds));
    switch (result.outcome) {
    case ShellCommandResult::Outcome::succeeded: return QStringLiteral("Done in %1").arg(took);
    case ShellCommandResult::Outcome::failed: return QStringLiteral("Failed (exit %1)").arg(result.exitCode);
    case ShellCommandResult::Outcome::stopped: return QStringLiteral("Stopped");
    case ShellCommandResult::Outcome::timedOut: return QStringLiteral("Stopped at its time limit");
    case ShellCommandResult::Outcome::couldNotStart: return QStringLiteral("Couldn’t start");
    case ShellCommandResult::Outcome::openedInTerminal: return QStringLiteral("Opened in a terminal");
    }
    return {};
}

} // namespace

CommandsWidget::CommandsWidget(WidgetInstance instance, WidgetMonitors& monitors) : LinesTile(std::move(instance), 4), monitors_(monitors)
{
    watch_ = monitors_.addObserver(WidgetMonitors::Source::commands, [this] { tellChanged(); });
}

CommandsWidget::~CommandsWidget() { monitors_.removeObserver(WidgetMonitors::Source::commands, watch_); }

std::vector<ShellCommand> CommandsWidget::commandsIn(const WidgetInstance& instance)
{
    std::vector<ShellCommand> commands;
    auto found = instance.options.find(std::string(commandsOption));
    if (found == instance.options.end())
        return commands;
    auto list = nlohmann::json::parse(found->second, nullptr, false);
    if (!list.is_array())
        return commands;
    for (const auto& entry : list)
        if (auto command = ShellCommand::fromJSON(entry.dump()))
            commands.push_back(std::move(*command));
    return commands;
}

std::string CommandsWidget::encode(const std::vector<ShellCommand>& commands)
{
    auto list = nlohmann::json::array();
    for (const ShellCommand& command : commands)
        list.push_back(nlohmann::json::parse(command.toJSON()));
    return list.dump();
}

CommandsWidget::Face CommandsWidget::face() const
{
    std::vector<ShellCommand> commands = commandsIn(instance_);
    if (commands.empty())
        return { QStringLiteral("Save a command"), stateColour::unknown() };
    ShellCommandRunner* runner = nullptr;
    for (const ShellCommand& command : commands) {
        if (!runner)
            runner = &monitors_.commands();
        if (runner->isRunning(command.id))
            return { QString::fromStdString(command.name) + QStringLiteral(" running…"), stateColour::waiting() };
    }
    // The last run of any of them, if there was one.
    const ShellCommandResult* last = nullptr;
    const ShellCommand* lastCommand = nullptr;
    for (const ShellCommand& command : commands) {
        auto found = monitors_.commandResults().find(command.id);
        if (found != monitors_.commandResults().end() && (!last || found->second.ended > last->ended)) {
            last = &found->second;
            lastCommand = &command;
        }
    }
    if (last) {
        bool good = last->outcome == ShellCommandResult::Outcome::succeeded || last->outcome == ShellCommandResult::Outcome::openedInTerminal;
        return { QString::fromStdString(lastCommand->name) + QStringLiteral(": ") + outcomeText(*last), good ? stateColour::good() : stateColour::trouble() };
    }
    return { commands.size() == 1 ? QString::fromStdString(commands.front().name) : QStringLiteral("%1 commands").arg(commands.size()),
             stateColour::unknown() };
}

WidgetLines CommandsWidget::lines() const
{
    Face shown = face();
    return { caption, shown.value, shown.state };
}

QWidget* CommandsWidget::makeCard()
{
    WidgetMonitors& monitors = monitors_;
    // The card's own copy of the list, which its Save adds to as it writes the option.
    auto commands = std::make_shared<std::vector<ShellCommand>>(commandsIn(instance_));
    auto* card = new QWidget;
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* list = new QListWidget;
    list->setAccessibleName(QStringLiteral("Saved commands"));
    auto* output = new QPlainTextEdit;
    output->setReadOnly(true);
    output->setAccessibleName(QStringLiteral("Output"));
    output->setMaximumHeight(110);
    auto* run = new QPushButton(QStringLiteral("Run"));
    auto* stop = new QPushButton(QStringLiteral("Stop"));
    auto* terminal = new QPushButton(QStringLiteral("Open in Terminal"));
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(run);
    buttons->addWidget(stop);
    buttons->addStretch();
    buttons->addWidget(terminal);
    // A new command: its name, what it runs and where.
    auto* name = new QLineEdit;
    name->setAccessibleName(QStringLiteral("Name"));
    auto* text = new QLineEdit;
    text->setAccessibleName(QStringLiteral("Command"));
    text->setPlaceholderText(QStringLiteral("make test"));
    auto* folder = new QLineEdit;
    folder->setAccessibleName(QStringLiteral("Folder"));
    folder->setPlaceholderText(QStringLiteral("~/src/project"));
    auto* asks = new QCheckBox(QStringLiteral("Ask before running"));
    auto* add = new QPushButton(QStringLiteral("Add Command"));
    auto* change = new QPushButton(QStringLiteral("Save Changes"));
    auto* remove = new QPushButton(QStringLiteral("Delete"));
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Name"), name);
    form->addRow(QStringLiteral("Command"), text);
    form->addRow(QStringLiteral("Folder"), folder);
    form->addRow(QString(), asks);
    auto* editing = new QHBoxLayout;
    editing->addWidget(remove);
    editing->addStretch();
    editing->addWidget(change);
    editing->addWidget(add);
    layout->addWidget(list, 1);
    layout->addLayout(buttons);
    layout->addWidget(output);
    layout->addLayout(form);
    layout->addLayout(editing);

    auto chosen = [list, commands]() -> std::optional<ShellCommand> {
        int row = list->currentRow();
        if (row < 0 || row >= static_cast<int>(commands->size()))
            return std::nullopt;
        return (*commands)[static_cast<size_t>(row)];
    };
    // Running a command that asks first, and deleting one, take a second press on the same
    // button, which says what it will do; choosing another command takes the question back.
    auto disarm = [run, remove] {
        run->setText(QStringLiteral("Run"));
        remove->setText(QStringLiteral("Delete"));
    };
    auto show = [&monitors, list, output, run, stop, change, remove, commands] {
        int row = list->currentRow();
        QSignalBlocker quiet(list);
        list->clear();
        for (const ShellCommand& command : *commands) {
            QString state;
            if (monitors.commands().isRunning(command.id))
                state = QStringLiteral("running…");
            else if (auto found = monitors.commandResults().find(command.id); found != monitors.commandResults().end())
                state = outcomeText(found->second);
            list->addItem(QString::fromStdString(command.name) + (state.isEmpty() ? QString() : QStringLiteral(" — ") + state));
        }
        list->setCurrentRow(std::min(std::max(row, 0), list->count() - 1));
        int current = list->currentRow();
        const ShellCommand* command = current >= 0 ? &(*commands)[static_cast<size_t>(current)] : nullptr;
        bool running = command && monitors.commands().isRunning(command->id);
        run->setEnabled(command && !running);
        stop->setEnabled(running);
        change->setEnabled(command != nullptr);
        remove->setEnabled(command != nullptr);
        auto found = command ? monitors.commandResults().find(command->id) : monitors.commandResults().end();
        output->setPlainText(found != monitors.commandResults().end() ? QString::fromStdString(found->second.output) : QString());
    };
    // The chosen command in the form, to change it or to save a copy under another name.
    auto fillForm = [chosen, name, text, folder, asks] {
        auto command = chosen();
        name->setText(command ? QString::fromStdString(command->name) : QString());
        text->setText(command ? QString::fromStdString(command->command) : QString());
        folder->setText(command ? QString::fromStdString(command->folder) : QString());
        asks->setChecked(command && command->asksFirst);
    };
    show();
    fillForm();
    QObject::connect(list, &QListWidget::currentRowChanged, card, [show, fillForm, disarm] {
        disarm();
        show();
        fillForm();
    });
    uint64_t watch = monitors.addObserver(WidgetMonitors::Source::commands, show);
    QObject::connect(card, &QObject::destroyed, [&monitors, watch] { monitors.removeObserver(WidgetMonitors::Source::commands, watch); });
    QObject::connect(run, &QPushButton::clicked, card, [&monitors, chosen, run, disarm] {
        auto command = chosen();
        if (!command)
            return;
        if (command->asksFirst && run->text() == QStringLiteral("Run")) {
            run->setText(QStringLiteral("Run “%1”?").arg(QString::fromStdString(command->name)));
            return;
        }
        disarm();
        command->runsInTerminal = false;
        monitors.commands().run(*command);
    });
    QObject::connect(stop, &QPushButton::clicked, card, [&monitors, chosen] {
        if (auto command = chosen())
            monitors.commands().stop(command->id);
    });
    QObject::connect(terminal, &QPushButton::clicked, card, [&monitors, chosen] {
        if (auto command = chosen()) {
            command->runsInTerminal = true;
            monitors.commands().run(*command);
        }
    });
    auto saving = setOption;
    // What the form says, over `command`'s other fields; none when it names nothing to run.
    auto fromForm = [name, text, folder, asks](ShellCommand command) -> std::optional<ShellCommand> {
        if (text->text().trimmed().isEmpty())
            return std::nullopt;
        command.name = name->text().trimmed().isEmpty() ? text->text().trimmed().toStdString() : name->text().trimmed().toStdString();
        command.command = text->text().toStdString();
        command.folder = folder->text().trimmed().toStdString();
        command.asksFirst = asks->isChecked();
        return command;
    };
    QObject::connect(add, &QPushButton::clicked, card, [commands, list, fromForm, saving, show] {
        auto command = fromForm(ShellCommand {});
        if (!command || !saving)
            return;
        commands->push_back(*command);
        saving(std::string(commandsOption), encode(*commands));
        show();
        // The new command is the chosen one.
        list->setCurrentRow(static_cast<int>(commands->size()) - 1);
    });
    QObject::connect(change, &QPushButton::clicked, card, [commands, list, fromForm, saving, show] {
        int row = list->currentRow();
        if (row < 0 || row >= static_cast<int>(commands->size()) || !saving)
            return;
        auto command = fromForm((*commands)[static_cast<size_t>(row)]);
        if (!command)
            return;
        (*commands)[static_cast<size_t>(row)] = *command;
        saving(std::string(commandsOption), encode(*commands));
        show();
    });
    QObject::connect(remove, &QPushButton::clicked, card, [commands, list, remove, saving, show, fillForm, disarm] {
        int row = list->currentRow();
        if (row < 0 || row >= static_cast<int>(commands->size()) || !saving)
            return;
        if (remove->text() == QStringLiteral("Delete")) {
            remove->setText(QStringLiteral("Delete “%1”?").arg(QString::fromStdString((*commands)[static_cast<size_t>(row)].name)));
            return;
        }
        disarm();
        commands->erase(commands->begin() + row);
        saving(std::string(commandsOption), encode(*commands));
        show();
        fillForm();
    });
    return card;
}

} // namespace kestrune

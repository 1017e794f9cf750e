#include "JsonCommands.h"

#include "DrawingCommands.h"
#include "DrawingStore.h"
#include "OverlayController.h"
#include "PaletteColor.h"
#include "Renderer.h"
#include "Settings.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("JsonCommands", text);
}

// No desktop reaches this far: a point beyond it is a script's mistake.
constexpr double farthest = 1e6;
// The tray menu shows the fade delay as a whole number of seconds in 64 bits.
constexpr double longestFade = 9.2e18;
constexpr double anyNumber = std::numeric_limits<double>::max();
// Pressing and releasing in one spot draws no shape; neither does a script.
constexpr double shortestShape = 3.0;

// The fields of one request. The first problem found is kept and every read
// after it gives nothing, so a command reads all it needs and then checks
// `problem` once, before it changes anything.
class Fields {
public:
    explicit Fields(QJsonObject object) : object(std::move(object)) {}

    QString problem;

    bool has(const QString& name) const { return object.contains(name); }
    void fail(const QString& message) {
        if (problem.isEmpty())
            problem = message;
    }

    // Besides "v" and "cmd", only these fields may appear: a misspelt one
    // would otherwise be left out without a word.
    void allow(const QStringList& names) {
        for (auto it = object.constBegin(); it != object.constEnd(); ++it)
            if (!names.contains(it.key()) && it.key() != QLatin1String("v") &&
                it.key() != QLatin1String("cmd"))
                fail(tr("Unknown field \"%1\".").arg(it.key()));
    }

    std::optional<QJsonValue> get(const QString& name, QJsonValue::Type type,
                                  const QString& typeName) {
        if (!problem.isEmpty())
            return std::nullopt;
        if (!has(name)) {
            fail(tr("The field \"%1\" is missing.").arg(name));
            return std::nullopt;
        }
        const QJsonValue value = object.value(name);
        if (value.type() != type) {
            fail(tr("The field \"%1\" must be %2.").arg(name, typeName));
            return std::nullopt;
        }
        return value;
    }
    void outOfRange(const QString& name, const QString& range) {
        fail(tr("The field \"%1\" is out of range: %2.").arg(name, range));
    }

    std::optional<QString> text(const QString& name) {
        const auto value = get(name, QJsonValue::String, tr("text"));
        return value ? std::optional(value->toString()) : std::nullopt;
    }
    std::optional<bool> boolean(const QString& name) {
        const auto value = get(name, QJsonValue::Bool, tr("true or false"));
        return value ? std::optional(value->toBool()) : std::nullopt;
    }
    std::optional<double> number(const QString& name, double low, double high,
                                 const QString& range) {
        const auto value = get(name, QJsonValue::Double, tr("a number"));
        if (!value)
            return std::nullopt;
        const double number = value->toDouble();
        if (number >= low && number <= high)
            return number;
        outOfRange(name, range);
        return std::nullopt;
    }
    std::optional<qint64> wholeNumber(const QString& name, qint64 low, qint64 high) {
        const auto value = number(name, double(low), double(high),
                                  tr("a whole number from %1 to %2").arg(low).arg(high));
        if (value && *value != std::floor(*value))
            fail(tr("The field \"%1\" must be a whole number.").arg(name));
        return problem.isEmpty() ? std::optional(qint64(*value)) : std::nullopt;
    }
    std::optional<Tool> tool(const QString& name) {
        const auto raw = text(name);
        if (!raw)
            return std::nullopt;
        if (const auto tool = toolFromRawValue(*raw))
            return tool;
        outOfRange(name, tr("one of pen, highlighter, arrow, ellipse, rect, text"));
        return std::nullopt;
    }
    // A palette number (1 for the first colour, as on the keys) or "#rrggbb".
    std::optional<QColor> color(const QString& name) {
        static const QRegularExpression hex(QStringLiteral("^#[0-9a-fA-F]{6}$"));
        if (object.value(name).isString()) {
            const auto value = text(name);
            if (value && hex.match(*value).hasMatch())
                return QColor(*value);
            outOfRange(name, tr("a palette number or \"#rrggbb\""));
            return std::nullopt;
        }
        const auto value = get(name, QJsonValue::Double, tr("a palette number or \"#rrggbb\""))
                               ? wholeNumber(name, 1, qint64(palette().size()))
                               : std::nullopt;
        return value ? std::optional(paletteColor(*value - 1).color) : std::nullopt;
    }
    // [[x, y], ...] in desktop coordinates, between `fewest` and `most` of them.
    std::optional<std::vector<QPointF>> points(const QString& name, size_t fewest, size_t most) {
        const QString typeName = tr("a list of [x, y] points");
        const auto value = get(name, QJsonValue::Array, typeName);
        if (!value)
            return std::nullopt;
        std::vector<QPointF> points;
        for (const QJsonValue& entry : value->toArray()) {
            const QJsonArray pair = entry.toArray();
            if (pair.size() != 2 || !pair[0].isDouble() || !pair[1].isDouble()) {
                fail(tr("The field \"%1\" must be %2.").arg(name, typeName));
                return std::nullopt;
            }
            const QPointF point(pair[0].toDouble(), pair[1].toDouble());
            if (std::abs(point.x()) > farthest || std::abs(point.y()) > farthest) {
                outOfRange(name, tr("coordinates from -%1 to %1").arg(farthest));
                return std::nullopt;
            }
            points.push_back(point);
        }
        if (points.size() < fewest || points.size() > most) {
            outOfRange(name, fewest == most ? tr("this kind takes %1 point(s)").arg(fewest)
                                            : tr("this kind takes at least %1 point").arg(fewest));
            return std::nullopt;
        }
        return points;
    }

private:
    QJsonObject object;
};

DrawingStore& store() {
    return OverlayController::shared().store();
}

QJsonObject success(QJsonObject reply = {}) {
    reply[QStringLiteral("v")] = JsonCommands::version;
    reply[QStringLiteral("ok")] = true;
    return reply;
}

QJsonObject draw(Fields& fields) {
    fields.allow({QStringLiteral("kind"), QStringLiteral("points"), QStringLiteral("color"),
                  QStringLiteral("width"), QStringLiteral("text")});
    const auto kind = fields.tool(QStringLiteral("kind"));
    const size_t most = !kind || isFreehandTool(*kind) ? std::numeric_limits<size_t>::max()
                        : isShapeTool(*kind)           ? 2
                                                       : 1;
    const auto points =
        fields.points(QStringLiteral("points"), kind && isShapeTool(*kind) ? 2 : 1, most);
    const auto color = fields.has(QStringLiteral("color"))
                           ? fields.color(QStringLiteral("color"))
                           : std::optional(paletteColor(store().colorIndex()).color);
    const auto width =
        fields.has(QStringLiteral("width"))
            ? fields.number(QStringLiteral("width"), -anyNumber, anyNumber, tr("a number"))
            : std::optional(store().width());
    std::optional<QString> text;
    if (kind == Tool::text) {
        text = fields.text(QStringLiteral("text"));
        if (text && text->isEmpty())
            fields.outOfRange(QStringLiteral("text"), tr("some text"));
    } else if (fields.has(QStringLiteral("text"))) {
        fields.fail(tr("The field \"text\" goes with the kind \"text\" only."));
    }
    if (!fields.problem.isEmpty())
        return JsonCommands::failure(fields.problem);

    Item item;
    item.kind = *kind;
    item.points = *points;
    item.color = *color;
    item.width = DrawingCommands::allowedWidth(*width);
    if (item.kind == Tool::text) {
        item.text = *text;
        item.width = DrawingStore::textSize(item.width);
    }
    if (isShapeTool(item.kind) &&
        std::hypot(item.points[1].x() - item.points[0].x(),
                   item.points[1].y() - item.points[0].y()) < shortestShape)
        return JsonCommands::failure(tr("The field \"points\" is out of range: a shape's ends "
                                        "must lie %1 pixels apart or more.")
                                         .arg(shortestShape));
    const quint64 id = store().add(std::move(item));
    return success({{QStringLiteral("id"), qint64(id)}});
}

QJsonObject remove(Fields& fields) {
    fields.allow({QStringLiteral("id")});
    const auto id = fields.wholeNumber(QStringLiteral("id"), 1, qint64(1) << 53);
    if (!fields.problem.isEmpty())
        return JsonCommands::failure(fields.problem);
    if (!store().remove(quint64(*id)))
        return JsonCommands::failure(
            tr("The field \"id\" is out of range: there is no item %1.").arg(*id));
    return success();
}

QJsonObject set(Fields& fields) {
    const QStringList names = {QStringLiteral("tool"), QStringLiteral("color"),
                               QStringLiteral("width"), QStringLiteral("fade"),
                               QStringLiteral("hintBar")};
    fields.allow(names);
    if (std::none_of(names.begin(), names.end(),
                     [&](const QString& name) { return fields.has(name); }))
        fields.fail(tr("The field \"%1\" is missing: set one or more of them.")
                        .arg(names.join(QStringLiteral("\", \""))));
    const auto has = [&](const char* name) { return fields.has(QLatin1String(name)); };
    const auto tool = has("tool") ? fields.tool(QStringLiteral("tool")) : std::nullopt;
    const auto color =
        has("color") ? fields.wholeNumber(QStringLiteral("color"), 1, qint64(palette().size()))
                     : std::nullopt;
    const auto width =
        has("width") ? fields.number(QStringLiteral("width"), -anyNumber, anyNumber, tr("a number"))
                     : std::nullopt;
    const auto fade = has("fade") ? fields.number(QStringLiteral("fade"), 0, longestFade,
                                                  tr("0 (never) or more seconds"))
                                  : std::nullopt;
    const auto hintBar = has("hintBar") ? fields.boolean(QStringLiteral("hintBar")) : std::nullopt;
    if (!fields.problem.isEmpty())
        return JsonCommands::failure(fields.problem);

    if (tool)
        DrawingCommands::selectTool(store(), *tool);
    if (color)
        DrawingCommands::selectColor(store(), *color);
    if (width)
        store().setWidth(DrawingCommands::allowedWidth(*width));
    if (fade)
        DrawingCommands::setFadeSeconds(store(), *fade);
    if (hintBar)
        DrawingCommands::setHintBar(store(), *hintBar);
    return success();
}

QJsonObject state() {
    const DrawingStore& drawing = store();
    QJsonArray items;
    for (const Item& item : drawing.items())
        items.append(JsonCommands::describe(item));
    return success({{QStringLiteral("drawing"), drawing.isDrawing()},
                    {QStringLiteral("tool"), rawValue(drawing.tool())},
                    {QStringLiteral("color"), drawing.colorIndex() + 1},
                    {QStringLiteral("width"), drawing.width()},
                    {QStringLiteral("fade"), Settings::shared().fadeSeconds()},
                    {QStringLiteral("hintBar"), Settings::shared().hudVisible()},
                    {QStringLiteral("items"), items}});
}

// Commands without fields: they act, then tell whether drawing is on.
QJsonObject act(Fields& fields, void (*action)()) {
    fields.allow({});
    if (!fields.problem.isEmpty())
        return JsonCommands::failure(fields.problem);
    action();
    return success({{QStringLiteral("drawing"), store().isDrawing()}});
}

} // namespace

QJsonObject JsonCommands::execute(const QByteArray& line, bool* watch) {
    *watch = false;
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(line, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return failure(tr("The request is not JSON: %1 at byte %2.")
                           .arg(parseError.errorString())
                           .arg(parseError.offset));
    if (!document.isObject())
        return failure(tr("The request is not a JSON object."));
    Fields fields(document.object());
    if (fields.has(QStringLiteral("v")))
        fields.number(QStringLiteral("v"), version, version,
                      tr("this Quillery speaks version %1").arg(version));
    const auto command = fields.text(QStringLiteral("cmd"));
    if (!command)
        return failure(fields.problem);

    if (*command == QLatin1String("draw"))
        return draw(fields);
    if (*command == QLatin1String("remove"))
        return remove(fields);
    if (*command == QLatin1String("set"))
        return set(fields);
    if (*command == QLatin1String("clear"))
        return act(fields, [] { DrawingCommands::clear(store()); });
    if (*command == QLatin1String("undo"))
        return act(fields, [] { DrawingCommands::undo(store()); });
    if (*command == QLatin1String("start"))
        return act(fields, [] { OverlayController::shared().start(); });
    if (*command == QLatin1String("stop"))
        return act(fields, [] { OverlayController::shared().stop(); });
    if (*command == QLatin1String("toggle"))
        return act(fields, [] { OverlayController::shared().toggle(); });
    if (*command == QLatin1String("state") || *command == QLatin1String("watch")) {
        fields.allow({});
        if (!fields.problem.isEmpty())
            return failure(fields.problem);
        *watch = *command == QLatin1String("watch");
        return *watch ? success() : state();
    }
    return failure(tr("Unknown command \"%1\".").arg(command->left(64)));
}

QJsonObject JsonCommands::failure(const QString& message) {
    return {{QStringLiteral("v"), version},
            {QStringLiteral("ok"), false},
            {QStringLiteral("error"), message}};
}

QJsonObject JsonCommands::describe(const Item& item) {
    const QRect bounds = Renderer::itemBounds(item, false).toAlignedRect();
    return {{QStringLiteral("id"), qint64(item.id)},
            {QStringLiteral("kind"), rawValue(item.kind)},
            {QStringLiteral("bounds"), QJsonObject{{QStringLiteral("x"), bounds.x()},
                                                   {QStringLiteral("y"), bounds.y()},
                                                   {QStringLiteral("width"), bounds.width()},
                                                   {QStringLiteral("height"), bounds.height()}}}};
}

#include "DLDatabase.h"

#include "Assert.h"
#include "DLQuoteTools.h"

#include <algorithm>

namespace brindle {

// ---------------------------------------------------------------------------
// TCustomConnection

TCustomConnection::~TCustomConnection() { DetachClients(); }

void TCustomConnection::SetConnected(bool value) {
    if (value == GetConnected()) return;
    if (value) {
        if (FLoading) return;
        if (BeforeConnect) BeforeConnect();
        DoConnect();
        if (AfterConnect) AfterConnect();
    } else {
        if (BeforeDisconnect) BeforeDisconnect();
        // What reads through the connection lets go first; a client may
        // unregister itself while it is told.
        const std::vector<IConnectionClient*> clients = FClients;
        for (IConnectionClient* c : clients) c->ConnectionClosing();
        DoDisconnect();
        if (AfterDisconnect) AfterDisconnect();
    }
}

void TCustomConnection::RegisterClient(IConnectionClient* client) {
    if (std::find(FClients.begin(), FClients.end(), client) == FClients.end()) FClients.push_back(client);
}

void TCustomConnection::UnregisterClient(IConnectionClient* client) {
    FClients.erase(std::remove(FClients.begin(), FClients.end(), client), FClients.end());
}

void TCustomConnection::DetachClients() {
    // A client may unregister itself while it is told; work on a copy.
    const std::vector<IConnectionClient*> clients = FClients;
    FClients.clear();
    for (IConnectionClient* c : clients) c->ConnectionDestroyed();
}

// ---------------------------------------------------------------------------
// TRecordSet

void TRecordSet::Clear() {
    FNames.clear();
    FRecs.clear();
}

void TRecordSet::AddField(const QString& Name) {
    BRINDLE_ASSERT(FRecs.empty(), "TRecordSet: Adding column is not allowed if result set not empty.");
    FNames.append(Name);
}

int TRecordSet::Append() {
    QStringList row;
    row.reserve(FNames.size());
    for (qsizetype i = 0; i < FNames.size(); ++i) row.append(QString());
    FRecs.push_back(row);
    return static_cast<int>(FRecs.size()) - 1;
}

int TRecordSet::FieldIndex(const QString& FieldName) const {
    const int i = static_cast<int>(FNames.indexOf(FieldName));
    BRINDLE_ASSERT(i >= 0, "TRecordSet: unknown field name");
    return i;
}

QString TRecordSet::GetValueByName(int RecNo, const QString& FieldName) const {
    const int i = FieldIndex(FieldName);
    return i < 0 ? QString() : GetValue(RecNo, i);
}

void TRecordSet::SetValueByName(int RecNo, const QString& FieldName, const QString& Value) {
    const int i = FieldIndex(FieldName);
    if (i >= 0) SetValue(RecNo, i, Value);
}

QString TRecordSet::GetValue(int RecNo, int FieldNo) const { return FRecs.at(static_cast<size_t>(RecNo)).at(FieldNo); }

void TRecordSet::SetValue(int RecNo, int FieldNo, const QString& Value) {
    FRecs.at(static_cast<size_t>(RecNo))[FieldNo] = Value;
}

// ---------------------------------------------------------------------------
// TDLDatabase

void TDLDatabase::SetReadOnly(bool value) {
    if (Connected()) throw ECustomException(QStringLiteral("Cannot set ReadOnly while connected"));
    FReadOnly = value;
}

void TDLDatabase::CheckConnected() {
    if (!Connected()) throw CreateException(QStringLiteral("Database not connected."));
}

QString TDLDatabase::GetStringValue(const QString&) { return {}; }

QString TDLDatabase::FormatFieldsList(const QString& Fields) {
    QStringList list;
    FieldsToList(Fields, list, u';');
    return ListToFields(list, true, QStringLiteral(","));
}

// ---------------------------------------------------------------------------
// Wait cursor

namespace {
TWaitCursorHook& waitCursorHook() {
    static TWaitCursorHook hook;
    return hook;
}
}  // namespace

void SetWaitCursorHook(TWaitCursorHook hook) { waitCursorHook() = std::move(hook); }

TWaitCursorGuard::TWaitCursorGuard(bool enabled) : FEnabled(enabled && waitCursorHook()) {
    if (FEnabled) waitCursorHook()(true);
}

TWaitCursorGuard::~TWaitCursorGuard() {
    if (FEnabled) waitCursorHook()(false);
}

}  // namespace brindle

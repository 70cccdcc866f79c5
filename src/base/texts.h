// All Japanese texts of the program: dialog, message boxes and log. The source is UTF-8; the
// compiler turns these literals into code page 932. Trailing spaces and line feeds are part of the
// texts.
#pragma once

namespace velmora::texts {

// Status line.
inline constexpr char kConnecting[] = "サーバーに接続中です...\n";
inline constexpr char kChecking[] = "確認中 ";
inline constexpr char kRemoving[] = "削除しています";
inline constexpr char kRemovingEntry[] = "削除しています...\n";
inline constexpr char kCompleted[] = "アップデート完了";
inline constexpr char kCancelled[] = "キャンセルしました。\n";

// Message boxes.
inline constexpr char kErrorCaption[] = "エラー";
inline constexpr char kRestartCaption[] = "VelmoraUpdate";
inline constexpr char kAlreadyRunning[] =
    "既に動作中です。\n同時に2個以上起動することは出来ません。";
inline constexpr char kNoUsablePath[] =
    "ゲームのフォルダを開けません。\nフォルダ名に使用できない文字が含まれている可能性があります。\n"
    "フォルダ名を半角英数字に変更してから、もう一度起動してください。";
inline constexpr char kNoInternet[] = "インターネット接続に問題があります。";
inline constexpr char kNoServer[] = "サーバに接続できません。\nメンテナンス中の可能性があります。";
inline constexpr char kNotOnServer[] =
    "サーバー上のファイルが見つかりませんでした。\nFile : %s\nメンテナンス中の可能性があります。";
inline constexpr char kConnectionLost[] =
    "ダウンロードサーバとの接続が切れました。\n時間を置いて本プログラムを再実行してください。";
inline constexpr char kWrongData[] = "ファイルデータが一致しません";
inline constexpr char kExpandFailed[] = "ファイルの展開に失敗しました";
inline constexpr char kFileFailed[] =
    "ファイル : %sを処理中にエラーが発生しました。\nエラーメッセージは以下の通りです。\n\n %s ";
inline constexpr char kPatcherUpdated[] =
    "アップデートプログラムが更新されました。\nアップデートプログラムを再起動します。";
inline constexpr char kPaneFailed[] = "インフォメーションウインドウの初期化に失敗しました";

// Session log. The gap after STATUS_CODE is one ideographic space.
inline constexpr char kLogNoOptions[] = "オプションの指定はありません。\n";
inline constexpr char kLogListStatus[] = "HttpQueryInfo() HTTP_QUERY_STATUS_CODE　: code %d \n";
inline constexpr char kLogFileStatus[] =
    "HttpQueryInfo() HTTP_QUERY_STATUS_CODE　: code %d file = %s \n";
inline constexpr char kLogNoDirectory[] =
    "ファイルが作成できません MakeSureDirectoryPathExists() : file %s \n";
inline constexpr char kLogNoFile[] =
    "ファイルが作成できません CreateFile() : file %s : Err = %d \n";
inline constexpr char kLogNoWrite[] =
    "ファイルが作成できません WriteFile() : file %s : Err = %d \n";

// The dialog.
inline constexpr char kDialogTitle[] = "VELMORA アップデート  1.12";
inline constexpr char kStartGameButton[] = "ゲーム開始";
inline constexpr char kRecheckButton[] = "再チェック";
inline constexpr char kOptionsButton[] = "ゲームオプション設定";
inline constexpr char kDirectXButton[] = "DirectX診断";
inline constexpr char kScreenshotsButton[] = "スクリーンショット";
inline constexpr char kUpdateButton[] = "Update";  // until the first run
inline constexpr char kCancelUpdateButton[] = "CancelUpdate";
inline constexpr char kUpdateFilesButton[] = "UpdateFiles";

// What screen readers call the two bars.
inline constexpr char kFileBarName[] = "ファイル";
inline constexpr char kOverallBarName[] = "全体";

}  // namespace velmora::texts

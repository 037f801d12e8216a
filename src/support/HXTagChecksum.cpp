#include "HXTagChecksum.h"

#include "HXSystemLog.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

QString HXTagChecksumForFileAtURL(const QUrl &url)
{
    QNetworkAccessManager network;
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setTransferTimeout(15000);
    QNetworkReply *reply = network.get(request);
    QEventLoop wait;
    QObject::connect(reply, &QNetworkReply::finished, &wait, &QEventLoop::quit);
    if (!reply->isFinished())
        wait.exec(QEventLoop::ExcludeUserInputEvents);
    QString tag;
    // Only an HTTP answer carries a status code.
    if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid()) {
        tag = QString::fromLatin1(reply->rawHeader("ETag"));
        tag.remove(QLatin1Char('"'));
    }
    if (reply->error() != QNetworkReply::NoError)
        HXSystemLog::write(
            QStringLiteral("HXETagChecksumForImageAtURL error: %1").arg(reply->errorString()));
    delete reply;
    return tag;
}

<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN" sourcelanguage="en">
<context>
    <name>ConnectPage</name>
    <message>
        <source>Please enter the connection code to connect the screen</source>
        <translation>请输入投屏码连接大屏</translation>
    </message>
    <message>
        <source>The connection code is shown on the large screen</source>
        <translation>投屏码显示在大屏上</translation>
    </message>
    <message>
        <source>Start Connect</source>
        <translation>开始连接</translation>
    </message>
    <message>
        <source>Mirror Screen</source>
        <translation>镜像投屏</translation>
    </message>
    <message>
        <source>Expand Screen</source>
        <translation>扩展投屏</translation>
    </message>
    <message>
        <source>Window Screen</source>
        <translation>窗口投屏</translation>
    </message>
    <message>
        <source>File Screen</source>
        <translation>文件投屏</translation>
    </message>
    <message>
        <source>Reverse Screen</source>
        <translation>反向投屏</translation>
    </message>
    <message>
        <source>disconnect</source>
        <translation>断开连接</translation>
    </message>
</context>
<context>
    <name>DetailsExpansionWindow</name>
    <message>
        <source>Details</source>
        <translation>详情</translation>
    </message>
    <message>
        <source>Check that the PC and the screen are on the same network, then try again. If it keeps failing, send this code to your administrator.</source>
        <translation>请确认电脑与大屏处于同一网络后重试。如仍失败，请将此错误码发送给管理员。</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>确定</translation>
    </message>
</context>
<context>
    <name>DynamicWindow</name>
    <message>
        <source>Cancel</source>
        <translation>取消</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>确定</translation>
    </message>
</context>
<context>
    <name>ExceptionCallBack</name>
    <message>
        <source>Failed to turn on reverse control,</source>
        <translation>开启反向控制失败，</translation>
    </message>
    <message>
        <source> is controlling the screen</source>
        <translation> 正在控制大屏</translation>
    </message>
    <message>
        <source>Failed to turn on reverse control, the screen only for displaying</source>
        <translation>开启反向控制失败，该大屏仅用于显示</translation>
    </message>
</context>
<context>
    <name>FileScreenPage</name>
    <message>
        <source>FileScreen.</source>
        <translation>正在投屏文件.</translation>
    </message>
    <message>
        <source>Stop Screen</source>
        <translation>停止投屏</translation>
    </message>
</context>
<context>
    <name>OrvixUpgrade</name>
    <message>
        <source>Cast your screen to a display panel</source>
        <translation>将屏幕投射到显示大屏</translation>
    </message>
    <message>
        <source>Screen Mirroring</source>
        <translation>屏幕投屏</translation>
    </message>
    <message>
        <source>Connect Code</source>
        <translation>投屏码连接</translation>
    </message>
    <message>
        <source>Virtual display in use</source>
        <translation>虚拟显示器使用中</translation>
    </message>
</context>
<context>
    <name>PopupWindow</name>
    <message>
        <source>Cancel</source>
        <translation>取消</translation>
    </message>
</context>
<context>
    <name>ScreenPage</name>
    <message>
        <source>Please enter the connection code to cast screen</source>
        <translation>请输入投屏码进行投屏</translation>
    </message>
    <message>
        <source>Start Screen</source>
        <translation>开始投屏</translation>
    </message>
    <message>
        <source>Stop Screen</source>
        <translation>结束投屏</translation>
    </message>
</context>
<context>
    <name>SharePage</name>
    <message>
        <source>Please enter the connection code to show the screen here</source>
        <translation>请输入投屏码，在本机显示大屏画面</translation>
    </message>
    <message>
        <source>Reverse Screen</source>
        <translation>反向投屏</translation>
    </message>
</context>
<context>
    <name>TipWindows</name>
    <message>
        <source>ShowDetails</source>
        <translation>查看详情</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::BYOMSetting</name>
    <message>
        <source>BYOM Function Enable</source>
        <translation>使用大屏的摄像头和麦克风</translation>
    </message>
    <message>
        <source>Enable the virtual microphone and camera</source>
        <translation>在会议中使用大屏的摄像头和麦克风</translation>
    </message>
    <message>
        <source>BYOM Not Supported</source>
        <translation>不支持摄像头和麦克风</translation>
    </message>
    <message>
        <source>BYOM is not supported on the current Display.</source>
        <translation>当前大屏不支持共享摄像头和麦克风。</translation>
    </message>
    <message>
        <source>This computer cannot host a virtual camera and microphone (v4l2loopback and a PulseAudio server are needed).</source>
        <translation>此电脑无法提供虚拟摄像头和麦克风（需要 v4l2loopback 和 PulseAudio 服务）。</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::BYOMUsageGuidance</name>
    <message>
        <source>While the screen is cast, pick &quot;Zelvanor Camera&quot; and &quot;Zelvanor Microphone&quot; in your meeting program to use the display&apos;s camera and microphone.</source>
        <translation>投屏时，在会议软件中选择“Zelvanor Camera”和“Zelvanor Microphone”，即可使用大屏的摄像头和麦克风。</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>确定</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ConnectPage</name>
    <message>
        <source>inPut Connected Code</source>
        <translation>请输入投屏码</translation>
    </message>
    <message>
        <source>Connected</source>
        <translation>已连接</translation>
    </message>
    <message>
        <source>Passcode server not configured,please check and try again</source>
        <translation>未配置投屏码服务器，请检查后重试</translation>
    </message>
    <message>
        <source>virtual PC do not support Extend screen</source>
        <translation>虚拟机不支持扩展投屏</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ControlBtn</name>
    <message>
        <source>previous</source>
        <translation>上一个</translation>
    </message>
    <message>
        <source>next</source>
        <translation>下一个</translation>
    </message>
    <message>
        <source>rotate left</source>
        <translation>向左旋转</translation>
    </message>
    <message>
        <source>rotate right</source>
        <translation>向右旋转</translation>
    </message>
    <message>
        <source>zoom in</source>
        <translation>放大</translation>
    </message>
    <message>
        <source>zoom out</source>
        <translation>缩小</translation>
    </message>
    <message>
        <source>stop</source>
        <translation>停止</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::DetailsExpansionWindow</name>
    <message>
        <source>Error code: %1</source>
        <translation>错误码：%1</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::DisplayWidget</name>
    <message>
        <source>Delay: %1 ms  Bitrate: %2 kbps  Frame rate: %3 fps</source>
        <translation>延时：%1 ms  码率：%2 kbps  帧率：%3 fps</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::FileScreenPage</name>
    <message>
        <source>FileScreen.</source>
        <translation>正在投屏文件.</translation>
    </message>
    <message>
        <source>FileScreen..</source>
        <translation>正在投屏文件..</translation>
    </message>
    <message>
        <source>FileScreen...</source>
        <translation>正在投屏文件...</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::FileScreenStackWidget</name>
    <message>
        <source>File Screen</source>
        <translation>文件投屏</translation>
    </message>
    <message>
        <source>open a file</source>
        <translation>打开文件</translation>
    </message>
    <message>
        <source>The picture is renamed or deleted</source>
        <translation>图片已被重命名或删除</translation>
    </message>
    <message>
        <source>Selesct image is lager than 4K</source>
        <translation>所选图片大于 4K</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::HideSetWindow</name>
    <message>
        <source>Cast video stream</source>
        <translation>投屏视频流</translation>
    </message>
    <message>
        <source>Screen mouse flow</source>
        <translation>鼠标流</translation>
    </message>
    <message>
        <source>Screen casting reverse control flow</source>
        <translation>反向控制流</translation>
    </message>
    <message>
        <source>Reverse video streaming</source>
        <translation>反向投屏视频流</translation>
    </message>
    <message>
        <source>Reverse screen transmission and reverse current control</source>
        <translation>反向投屏及其控制流</translation>
    </message>
    <message>
        <source>Debug window</source>
        <translation>调试窗口</translation>
    </message>
    <message>
        <source>Changes to the agreement</source>
        <translation>传输协议</translation>
    </message>
    <message>
        <source>Record the screen casting code stream</source>
        <translation>录制投屏码流</translation>
    </message>
    <message>
        <source>Coding scheme</source>
        <translation>编码方式</translation>
    </message>
    <message>
        <source>Realtime data</source>
        <translation>实时数据</translation>
    </message>
    <message>
        <source>ReverseScreen</source>
        <translation>反向投屏</translation>
    </message>
    <message>
        <source>DebugLog</source>
        <translation>调试日志</translation>
    </message>
    <message>
        <source>Restore default </source>
        <translation>恢复默认</translation>
    </message>
    <message>
        <source>RGB flow  </source>
        <translation>RGB 流</translation>
    </message>
    <message>
        <source>YUV flow</source>
        <translation>YUV 流</translation>
    </message>
    <message>
        <source>H264 flow</source>
        <translation>H.264 流</translation>
    </message>
    <message>
        <source>RGB stream after LIBYUV conversion  </source>
        <translation>YUV 转换后的 RGB 流</translation>
    </message>
    <message>
        <source>RTP flow</source>
        <translation>RTP 流</translation>
    </message>
    <message>
        <source>Soft plaits are preferred</source>
        <translation>优先软件编码</translation>
    </message>
    <message>
        <source>Record Time Log</source>
        <translation>记录各阶段耗时</translation>
    </message>
    <message>
        <source>ShowDisplayInfo</source>
        <translation>显示码流数据</translation>
    </message>
    <message>
        <source>Show DisplaySetting</source>
        <translation>显示显示设置</translation>
    </message>
    <message>
        <source>Not supported</source>
        <translation>不支持</translation>
    </message>
    <message>
        <source>Closed</source>
        <translation>关</translation>
    </message>
    <message>
        <source>Open</source>
        <translation>开</translation>
    </message>
    <message>
        <source>BYOMShowModel</source>
        <translation>摄像头和麦克风模式</translation>
    </message>
    <message>
        <source>Record ReverseScreen Stream</source>
        <translation>录制反向投屏码流</translation>
    </message>
    <message>
        <source>GetJPEG</source>
        <translation>保存 JPEG</translation>
    </message>
    <message>
        <source>RequestKeyFrame</source>
        <translation>请求关键帧</translation>
    </message>
    <message>
        <source>PrintReverseControlProcessLogs</source>
        <translation>记录反向控制过程日志</translation>
    </message>
    <message>
        <source>PrintMouseInfomation</source>
        <translation>记录鼠标信息</translation>
    </message>
    <message>
        <source>show debug log</source>
        <translation>显示调试日志</translation>
    </message>
    <message>
        <source>hide debug log</source>
        <translation>隐藏调试日志</translation>
    </message>
    <message>
        <source>Open the log</source>
        <translation>打开日志文件夹</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ManageErrorCode</name>
    <message>
        <source>Failed to connect to the screen,please try again</source>
        <translation>连接大屏失败，请重试</translation>
    </message>
    <message>
        <source>Request denied,please check the screen permission settings</source>
        <translation>请求被拒绝，请检查大屏的权限设置</translation>
    </message>
    <message>
        <source>Big screen version is too low, please upgrade and try again</source>
        <translation>大屏版本过低，请升级后重试</translation>
    </message>
    <message>
        <source>Mirroring screen abnormal,please quit application and try again</source>
        <translation>投屏异常，请退出应用后重试</translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation>当前无网络，请检查后重试</translation>
    </message>
    <message>
        <source>Reverse screen abnormal,please try again</source>
        <translation>反向投屏异常，请重试</translation>
    </message>
    <message>
        <source>Passcode input error</source>
        <translation>投屏码输入错误</translation>
    </message>
    <message>
        <source>Get infomation from passcode server fail, please check and try again</source>
        <translation>从投屏码服务器获取信息失败，请检查后重试</translation>
    </message>
    <message>
        <source>You have been removed from the screen</source>
        <translation>您已被移出大屏</translation>
    </message>
    <message>
        <source>Failed to turn on sound mirroring screen,please try again</source>
        <translation>开启声音投屏失败，请重试</translation>
    </message>
    <message>
        <source>Failed to turn on reverse control,please try again</source>
        <translation>开启反向控制失败，请重试</translation>
    </message>
    <message>
        <source>The current screen can only be mirroring screen at 1080P resolution</source>
        <translation>当前大屏仅支持1080P分辨率投屏</translation>
    </message>
    <message>
        <source>Mirroring screen abnormal,please try again</source>
        <translation>投屏异常，请重试</translation>
    </message>
    <message>
        <source>Fast screen mirroring fail,please try again</source>
        <translation>快速投屏失败，请重试</translation>
    </message>
    <message>
        <source>The number of screens exceeds the limit. Please exit other screens first</source>
        <translation>投屏数量超出上限，请先退出其他投屏</translation>
    </message>
    <message>
        <source>The number of reverse screens exceeds the limit. Please exit other reverse screens first</source>
        <translation>反向投屏数量超出上限，请先退出其他反向投屏</translation>
    </message>
    <message>
        <source>Screen mirroring ended</source>
        <translation>投屏已结束</translation>
    </message>
    <message>
        <source>Reverse screen mirroring ended</source>
        <translation>反向投屏已结束</translation>
    </message>
    <message>
        <source>Mouse screen error</source>
        <translation>鼠标投屏错误</translation>
    </message>
    <message>
        <source>The mouse cannot be displayed on the large screen,please try again</source>
        <translation>鼠标无法在大屏上显示，请重试</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ModelButton</name>
    <message>
        <source>ExtendedMode</source>
        <translation>扩展模式</translation>
    </message>
    <message>
        <source>WindowMode</source>
        <translation>窗口模式</translation>
    </message>
    <message>
        <source>CopyMode</source>
        <translation>复制模式</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::NetTestWidget</name>
    <message>
        <source>Network test</source>
        <translation>网络检测</translation>
    </message>
    <message>
        <source>Local address:</source>
        <translation>本机地址：</translation>
    </message>
    <message>
        <source>Address:</source>
        <translation>地址：</translation>
    </message>
    <message>
        <source>Delay:</source>
        <translation>延时：</translation>
    </message>
    <message>
        <source>Result:</source>
        <translation>结果：</translation>
    </message>
    <message>
        <source>Gateway</source>
        <translation>网关</translation>
    </message>
    <message>
        <source>Server</source>
        <translation>服务器</translation>
    </message>
    <message>
        <source>Delay</source>
        <translation>延时</translation>
    </message>
    <message>
        <source>Screen port</source>
        <translation>大屏端口</translation>
    </message>
    <message>
        <source>Test</source>
        <translation>检测</translation>
    </message>
    <message>
        <source>Screen address:</source>
        <translation>大屏地址：</translation>
    </message>
    <message>
        <source>Port:</source>
        <translation>端口：</translation>
    </message>
    <message>
        <source>Error:</source>
        <translation>错误：</translation>
    </message>
    <message>
        <source>Error.Ip Parsing exception.</source>
        <translation>错误：地址解析异常。</translation>
    </message>
    <message>
        <source>No server address is set.</source>
        <translation>未设置服务器地址。</translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation>当前没有网络，请检查后重试</translation>
    </message>
    <message>
        <source>No gateway</source>
        <translation>无网关</translation>
    </message>
    <message>
        <source>Success.There is a large delay</source>
        <translation>成功，但延时较大</translation>
    </message>
    <message>
        <source>Success.</source>
        <translation>成功。</translation>
    </message>
    <message>
        <source>Error.Ip pinged failed.</source>
        <translation>错误：Ping 失败。</translation>
    </message>
    <message>
        <source>Testing...</source>
        <translation>正在检测...</translation>
    </message>
    <message>
        <source>Success.The screen port is reachable</source>
        <translation>成功：大屏端口可以访问</translation>
    </message>
    <message>
        <source>Error.The screen port cannot be reached</source>
        <translation>错误：无法访问大屏端口</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::OrvixUpgrade</name>
    <message>
        <source>Nearby screens: %1</source>
        <translation>附近的大屏：%1</translation>
    </message>
    <message>
        <source>Show main window</source>
        <translation>显示主窗口</translation>
    </message>
    <message>
        <source>Exit</source>
        <translation>退出</translation>
    </message>
    <message>
        <source>virtual PC network isolation </source>
        <translation>虚拟机网络隔离 </translation>
    </message>
    <message>
        <source>Resolution changes</source>
        <translation>分辨率变化</translation>
    </message>
    <message>
        <source>The client resolution has been modified and will be re displayed</source>
        <translation>客户端分辨率已修改，将重新投屏显示</translation>
    </message>
    <message>
        <source>Bit rate: %1 kbps</source>
        <translation>码率：%1 kbps</translation>
    </message>
    <message>
        <source>Frame rate: %1 fps</source>
        <translation>帧率：%1 fps</translation>
    </message>
    <message>
        <source>Delay: %1 ms</source>
        <translation>延时：%1 ms</translation>
    </message>
    <message>
        <source>Packet loss</source>
        <translation>有丢包</translation>
    </message>
    <message>
        <source>No packet loss</source>
        <translation>无丢包</translation>
    </message>
    <message>
        <source>Bit stream exception</source>
        <translation>码流异常</translation>
    </message>
    <message>
        <source>No bit stream for a long time</source>
        <translation>长时间未收到码流</translation>
    </message>
    <message>
        <source>Connection exception with server</source>
        <translation>与大屏连接异常</translation>
    </message>
    <message>
        <source>Reconnecting failed</source>
        <translation>重连失败</translation>
    </message>
    <message>
        <source>Reconnecting</source>
        <translation>正在重连</translation>
    </message>
    <message>
        <source>Reverse Control</source>
        <translation>反向控制</translation>
    </message>
    <message>
        <source>Reverse Control Invaild</source>
        <translation>反向控制无效</translation>
    </message>
    <message>
        <source>Net Exception</source>
        <translation>网络异常</translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation>当前无网络，请检查后重试</translation>
    </message>
    <message>
        <source>open a file</source>
        <translation>打开文件</translation>
    </message>
    <message>
        <source>Pictures, audio and video</source>
        <translation>图片、音频和视频</translation>
    </message>
    <message>
        <source>This file cannot be cast</source>
        <translation>此文件无法投屏</translation>
    </message>
    <message>
        <source>Setup</source>
        <translation>设置</translation>
    </message>
    <message>
        <source>BYOM Not Supported</source>
        <translation>不支持摄像头和麦克风</translation>
    </message>
    <message>
        <source>Camera and microphone</source>
        <translation>摄像头和麦克风</translation>
    </message>
    <message>
        <source>Stop casting</source>
        <translation>停止投屏</translation>
    </message>
    <message>
        <source>Mirroring check</source>
        <translation>投屏检查</translation>
    </message>
    <message>
        <source>Save diagnostic bundle...</source>
        <translation>保存诊断包...</translation>
    </message>
    <message>
        <source>About Zelvanor</source>
        <translation>关于 Zelvanor</translation>
    </message>
    <message>
        <source>Idle</source>
        <translation>空闲</translation>
    </message>
    <message>
        <source>Connected</source>
        <translation>已连接</translation>
    </message>
    <message>
        <source>Casting</source>
        <translation>投屏中</translation>
    </message>
    <message>
        <source>Showing the panel&apos;s screen</source>
        <translation>正在显示大屏画面</translation>
    </message>
    <message>
        <source>Connecting</source>
        <translation>正在连接</translation>
    </message>
    <message>
        <source>Open screen casting for meeting rooms.</source>
        <translation>面向会议室的开放投屏系统。</translation>
    </message>
    <message>
        <source>Built on these libraries, under their own licences:</source>
        <translation>基于以下程序库构建，各自遵循其许可证：</translation>
    </message>
    <message>
        <source>Display system</source>
        <translation>显示系统</translation>
    </message>
    <message>
        <source>Video encoder</source>
        <translation>视频编码器</translation>
    </message>
    <message>
        <source>Sound server</source>
        <translation>声音服务</translation>
    </message>
    <message>
        <source>Network</source>
        <translation>网络</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>确定</translation>
    </message>
    <message>
        <source>Limits casting</source>
        <translation>限制投屏的因素</translation>
    </message>
    <message>
        <source>Save diagnostic bundle</source>
        <translation>保存诊断包</translation>
    </message>
    <message>
        <source>Diagnostic bundle (*.tar.gz)</source>
        <translation>诊断包 (*.tar.gz)</translation>
    </message>
    <message>
        <source>Diagnostic bundle saved</source>
        <translation>诊断包已保存</translation>
    </message>
    <message>
        <source>Send %1 to your support team. It holds logs and settings, no keys.</source>
        <translation>请将 %1 发送给技术支持。其中包含日志和设置，不含密钥。</translation>
    </message>
    <message>
        <source>Diagnostic bundle not saved</source>
        <translation>诊断包未保存</translation>
    </message>
    <message>
        <source>The screen cannot show this file</source>
        <translation>大屏无法显示此文件</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::PopupWindow</name>
    <message>
        <source>Waiting for permission</source>
        <translation>等待授权</translation>
    </message>
    <message>
        <source>The screen has to allow this PC first. Please confirm on the screen.</source>
        <translation>需要大屏先允许本电脑，请在大屏上确认。</translation>
    </message>
    <message>
        <source>The screen is asking its user to accept the request. Please wait.</source>
        <translation>大屏正在询问其用户是否接受请求，请稍候。</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ReverseScreen</name>
    <message>
        <source>Reverse Screen</source>
        <translation>反向投屏</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ReverseScreenSidebar</name>
    <message>
        <source>Control</source>
        <translation>控制</translation>
    </message>
    <message>
        <source>Reverse control</source>
        <translation>反向控制</translation>
    </message>
    <message>
        <source>Home</source>
        <translation>主页</translation>
    </message>
    <message>
        <source>Back to home</source>
        <translation>返回主页</translation>
    </message>
    <message>
        <source>Back</source>
        <translation>返回</translation>
    </message>
    <message>
        <source>Back to previous</source>
        <translation>返回上一步</translation>
    </message>
    <message>
        <source>Photo</source>
        <translation>拍照</translation>
    </message>
    <message>
        <source>Take a snapshot</source>
        <translation>截取画面</translation>
    </message>
    <message>
        <source>Refresh</source>
        <translation>刷新</translation>
    </message>
    <message>
        <source>Refresh the picture</source>
        <translation>刷新画面</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ScreenPage</name>
    <message>
        <source>Pause</source>
        <translation>暂停</translation>
    </message>
    <message>
        <source>Sound</source>
        <translation>声音</translation>
    </message>
    <message>
        <source>Touch Control</source>
        <translation>反向控制</translation>
    </message>
    <message>
        <source>Switch Window</source>
        <translation>切换窗口</translation>
    </message>
    <message>
        <source>Please enter the connection code to cast screen</source>
        <translation>请输入投屏码进行投屏</translation>
    </message>
    <message>
        <source>SCreening .</source>
        <translation>投屏中 .</translation>
    </message>
    <message>
        <source>Continue</source>
        <translation>继续</translation>
    </message>
    <message>
        <source>Window is protected by authority, so can not be casted when it is minimized</source>
        <translation>窗口受权限保护，最小化时无法投屏</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::SelectScreenWindow_linux</name>
    <message>
        <source>Refresh</source>
        <translation>刷新</translation>
    </message>
    <message>
        <source>Confirm</source>
        <translation>确认</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::SettingWidget</name>
    <message>
        <source>Please enter a port number in the range of 0-65535</source>
        <translation>请输入 0-65535 范围内的端口号</translation>
    </message>
    <message>
        <source>Setup</source>
        <translation>设置</translation>
    </message>
    <message>
        <source>BasicSettings</source>
        <translation>基本设置</translation>
    </message>
    <message>
        <source>DisplaySetting</source>
        <translation>显示设置</translation>
    </message>
    <message>
        <source>Shortcut</source>
        <translation>快捷键</translation>
    </message>
    <message>
        <source>About</source>
        <translation>关于</translation>
    </message>
    <message>
        <source>Feedback</source>
        <translation>意见反馈</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>更新</translation>
    </message>
    <message>
        <source>Send your feedback with the logs</source>
        <translation>附带日志发送您的反馈</translation>
    </message>
    <message>
        <source>You are using the latest version</source>
        <translation>当前已是最新版本</translation>
    </message>
    <message>
        <source>MyHostName:</source>
        <translation>本机名称：</translation>
    </message>
    <message>
        <source>ServerIP:</source>
        <translation>口令服务器：</translation>
    </message>
    <message>
        <source>Port:</source>
        <translation>端口：</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>确定</translation>
    </message>
    <message>
        <source>Network test</source>
        <translation>网络检测</translation>
    </message>
    <message>
        <source>Support to display the following information</source>
        <translation>投屏时显示以下信息</translation>
    </message>
    <message>
        <source>Bitrate</source>
        <translation>码率</translation>
    </message>
    <message>
        <source>Delay</source>
        <translation>延时</translation>
    </message>
    <message>
        <source>Framerate</source>
        <translation>帧率</translation>
    </message>
    <message>
        <source>Packetlossrate</source>
        <translation>丢包率</translation>
    </message>
    <message>
        <source>High-resolution cast</source>
        <translation>高清投屏</translation>
    </message>
    <message>
        <source>Turn on high-resolution cast</source>
        <translation>开启高清投屏</translation>
    </message>
    <message>
        <source>Shortcut screen IP:</source>
        <translation>快捷投屏地址：</translation>
    </message>
    <message>
        <source>Start/Stop Screen</source>
        <translation>开始/停止投屏</translation>
    </message>
    <message>
        <source>Pause/Continue Screen</source>
        <translation>暂停/继续投屏</translation>
    </message>
    <message>
        <source>reset</source>
        <translation>重置</translation>
    </message>
    <message>
        <source>Invalid passcode server IP address. Please enter again</source>
        <translation>口令服务器地址无效，请重新输入</translation>
    </message>
    <message>
        <source>The host name cannot be empty</source>
        <translation>主机名不能为空</translation>
    </message>
    <message>
        <source>Saving failed. Please run Zelvanor as an administrator</source>
        <translation>保存失败，请检查 Zelvanor 是否有权写入设置</translation>
    </message>
    <message>
        <source>After it is turned on, the high-resolution screen projection will be used preferentially. The resource consumption is large, which may affect the computer performance. When the CPU utilization is high, the screen projection effect may not be ideal</source>
        <translation>开启后将优先使用高清投屏。资源消耗较大，可能影响电脑性能；CPU 占用较高时，投屏效果可能不理想</translation>
    </message>
    <message>
        <source>The start shortcut keys may be occupied by other programs, please reconfigure</source>
        <translation>开始投屏快捷键可能被其他程序占用，请重新设置</translation>
    </message>
    <message>
        <source>The pause shortcut keys may be occupied by other programs, please reconfigure</source>
        <translation>暂停投屏快捷键可能被其他程序占用，请重新设置</translation>
    </message>
    <message>
        <source>The shortcut has been registered, please change the key and try again</source>
        <translation>该快捷键已被注册，请更换按键后重试</translation>
    </message>
    <message>
        <source>Successfully modified</source>
        <translation>修改成功</translation>
    </message>
    <message>
        <source>Shortcut keys only support the configuration of English characters</source>
        <translation>快捷键仅支持英文字母</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::VideoPage</name>
    <message>
        <source>previous</source>
        <translation>上一个</translation>
    </message>
    <message>
        <source>pause</source>
        <translation>暂停</translation>
    </message>
    <message>
        <source>next</source>
        <translation>下一个</translation>
    </message>
    <message>
        <source>stop</source>
        <translation>停止</translation>
    </message>
    <message>
        <source>%1 is casting...</source>
        <translation>%1 正在投屏...</translation>
    </message>
    <message>
        <source>play</source>
        <translation>播放</translation>
    </message>
</context>
</TS>
